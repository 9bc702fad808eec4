#include "ui/QtAlerts.h"

#include <QAbstractButton>
#include <QMessageBox>
#include <QPushButton>

#include <memory>
#include <vector>

namespace vocle::ui {

void QtAlerts::show(const AlertRequest& request, std::function<void(int)> onResponse) {
    auto* box = new QMessageBox();
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowTitle("Vocle");
    box->setText(QString::fromStdString(request.title));
    box->setInformativeText(QString::fromStdString(request.text));
    box->setIcon(request.style == AlertStyle::critical  ? QMessageBox::Critical
                 : request.style == AlertStyle::warning ? QMessageBox::Warning
                                                        : QMessageBox::Information);
    std::vector<std::string> titles = request.buttons.empty() ? std::vector<std::string>{"OK"} : request.buttons;
    auto buttons = std::make_shared<std::vector<QAbstractButton*>>();
    for (size_t i = 0; i < titles.size(); ++i) {
        auto role = i == 0 ? QMessageBox::AcceptRole : QMessageBox::RejectRole;
        QPushButton* b = box->addButton(QString::fromStdString(titles[i]), role);
        if (i == 0) box->setDefaultButton(b);
        buttons->push_back(b);
    }
    MainQueue* queue = &mainQueue_;
    auto answered = std::make_shared<bool>(false);
    QObject::connect(box, &QMessageBox::buttonClicked, box, [=](QAbstractButton* clicked) {
        int index = static_cast<int>(buttons->size()) - 1;
        for (size_t i = 0; i < buttons->size(); ++i)
            if ((*buttons)[i] == clicked) index = static_cast<int>(i);
        *answered = true;
        if (onResponse) queue->post([onResponse, index] { onResponse(index); });
    });
    // Closing the box with Escape or the window button counts as the last button (cancel).
    QObject::connect(box, &QObject::destroyed, [=] {
        if (!*answered && onResponse) {
            const int index = static_cast<int>(buttons->size()) - 1;
            queue->post([onResponse, index] { onResponse(index); });
        }
    });
    box->setWindowModality(Qt::ApplicationModal);
    box->open();
}

}  // namespace vocle::ui
