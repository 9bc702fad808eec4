// A text field in another X client for the paste tests: the test binary starts itself with
// VOCLE_TEST_PASTE_TARGET=<file>, and this hook runs before gtest does. The field's text is mirrored
// into <file>; <file>.ready appears once the field has the keyboard focus.
#include <gtest/gtest.h>

#include "X11Harness.h"

#include <QApplication>
#include <QLineEdit>
#include <QTimer>
#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace {

void writeAtomically(const std::string& path, const std::string& text) {
    const std::string temp = path + ".tmp";
    std::ofstream(temp, std::ios::binary) << text;
    std::filesystem::rename(temp, path);
}

int runPasteTarget(const std::string& out) {
    qputenv("QT_QPA_PLATFORM", "xcb");
    int argc = 1;
    char name[] = "vocle-paste-target";
    char* argv[] = {name, nullptr};
    QApplication app(argc, argv);
    QLineEdit edit;
    edit.setWindowTitle("Paste target");
    edit.resize(480, 40);
    writeAtomically(out, "");
    QObject::connect(&edit, &QLineEdit::textChanged,
                     [&](const QString& text) { writeAtomically(out, text.toStdString()); });
    edit.show();
    edit.activateWindow();
    QTimer ready;
    QObject::connect(&ready, &QTimer::timeout, [&] {
        if (edit.isActiveWindow() && edit.hasFocus()) {
            writeAtomically(out + ".ready", "1");
            ready.stop();
        }
    });
    ready.start(20);
    return app.exec();
}

const bool pasteTargetHook = [] {
    if (const char* out = std::getenv("VOCLE_TEST_PASTE_TARGET")) std::_Exit(runPasteTarget(out));
    return true;
}();

// The Qt application goes before the desktop it is connected to.
class QtShutdown : public ::testing::Environment {
  public:
    void TearDown() override { vocle::testing::X11Harness::shutdownQt(); }
};
const auto* const qtShutdown = ::testing::AddGlobalTestEnvironment(new QtShutdown);

}  // namespace
