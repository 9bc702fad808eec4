// A plain text window in another process, standing in for the application the user dictates into.
// Usage: vocle-test-text-target OUTPUT_FILE [WM_CLASS]. Every change of its text is written to
// OUTPUT_FILE (replaced atomically), so the test reads back exactly what arrived.
#include <QApplication>
#include <QFile>
#include <QPlainTextEdit>
#include <QSaveFile>

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const QString output = QString::fromLocal8Bit(argv[1]);
    if (argc > 2) QApplication::setDesktopFileName(QString::fromLocal8Bit(argv[2]));
    QApplication app(argc, argv);
    if (argc > 2) app.setApplicationName(QString::fromLocal8Bit(argv[2]));

    QPlainTextEdit editor;
    editor.setWindowTitle("Vocle test target");
    editor.resize(480, 200);
    QObject::connect(&editor, &QPlainTextEdit::textChanged, [&] {
        QSaveFile file(output);
        if (file.open(QIODevice::WriteOnly)) {
            file.write(editor.toPlainText().toUtf8());
            file.commit();
        }
    });
    editor.show();
    editor.activateWindow();
    editor.setFocus();
    return app.exec();
}
