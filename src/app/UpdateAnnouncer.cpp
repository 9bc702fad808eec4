#include "app/UpdateAnnouncer.h"

#include <QMessageBox>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QTextDocumentFragment>

namespace vocle::app {

namespace {
void showFound(UrlOpener& opener, const AppcastItem& item, const std::string& current) {
    auto* box = new QMessageBox();
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowTitle("Vocle Update");
    box->setIcon(QMessageBox::Information);
    box->setText(QString("Vocle %1 is available — you have %2.")
                     .arg(QString::fromStdString(item.displayVersion()), QString::fromStdString(current)));
    // Notes may be HTML; the box shows them as plain text.
    const QString notes = QTextDocumentFragment::fromHtml(QString::fromStdString(item.releaseNotes)).toPlainText();
    if (!notes.trimmed().isEmpty()) box->setInformativeText(notes.trimmed());
    QPushButton* open = box->addButton("Open Release Page", QMessageBox::AcceptRole);
    box->addButton("Later", QMessageBox::RejectRole);
    box->setDefaultButton(open);
    const std::string url = item.infoURL();
    QObject::connect(box, &QMessageBox::buttonClicked, box, [&opener, open, url](QAbstractButton* b) {
        if (b == open && !url.empty()) opener.openURL(url);
    });
    box->open();
}
}  // namespace

UpdaterManager::UserDriver makeUpdateAnnouncer(UrlOpener& urlOpener, std::function<QSystemTrayIcon*()> tray,
                                               std::string currentVersion) {
    UpdaterManager::UserDriver driver;
    driver.showUpdateFound = [&urlOpener, tray, currentVersion](const AppcastItem& item, bool userInitiated) {
        QSystemTrayIcon* icon = tray ? tray() : nullptr;
        if (!userInitiated && icon && QSystemTrayIcon::isSystemTrayAvailable() && icon->supportsMessages()) {
            icon->showMessage("Vocle Update", QString("Vocle %1 is available.").arg(QString::fromStdString(item.displayVersion())));
            return;
        }
        showFound(urlOpener, item, currentVersion);
    };
    driver.showUpToDate = [currentVersion] {
        auto* box = new QMessageBox(QMessageBox::Information, "Vocle Update", "You're up to date!",
                                    QMessageBox::Ok);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->setInformativeText(QString("Vocle %1 is currently the newest version available.")
                                    .arg(QString::fromStdString(currentVersion)));
        box->open();
    };
    driver.showUpdateError = [](const std::string& message) {
        auto* box = new QMessageBox(QMessageBox::Warning, "Vocle Update", "Update Error!", QMessageBox::Ok);
        box->setAttribute(Qt::WA_DeleteOnClose);
        box->setInformativeText(QString("An error occurred while checking for updates: %1")
                                    .arg(QString::fromStdString(message)));
        box->open();
    };
    return driver;
}

}  // namespace vocle::app
