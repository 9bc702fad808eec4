#pragma once

#include <QVBoxLayout>
#include <QWidget>

#include <memory>

namespace vocle {

// A screen as the main window's factory hands it out: the view-model and its view, living and dying
// together. The view is built after the view-model and destroyed before it.
template <class ViewModel, class View>
class ScreenHost final : public QWidget {
  public:
    ScreenHost(std::unique_ptr<ViewModel> viewModel, QWidget* parent)
        : QWidget(parent), viewModel_(std::move(viewModel)) {
        auto* layout = new QVBoxLayout(this);
        layout->setContentsMargins(0, 0, 0, 0);
        view_ = new View(*viewModel_, this);
        layout->addWidget(view_);
    }
    ~ScreenHost() override { delete view_; }

    ViewModel& viewModel() { return *viewModel_; }
    View& view() { return *view_; }

  private:
    std::unique_ptr<ViewModel> viewModel_;
    View* view_;
};

}  // namespace vocle
