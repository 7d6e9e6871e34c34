// arraylens: a debugger window with the Array Lens view.
#include "shell/debuggerwindow.h"
#include "shell/options.h"

#include <QApplication>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

static int printUsage() {
    std::fputs(qPrintable(shell::usageText()), stdout);
    return 0;
}

int main(int argc, char** argv) {
    // Help first: it needs no display, and the application object below
    // cannot be made without one. (Qt's own options, such as -platform, are
    // known only once that object has taken them out.)
    {
        QStringList arguments;
        for (int i = 1; i < argc; ++i)
            arguments << QString::fromLocal8Bit(argv[i]);
        shell::Options early;
        if (shell::parseOptions(arguments, early, nullptr) && early.help)
            return printUsage();
    }

    // The web engine (the plug-in's plots) will not start as root with its
    // sandbox on, and without a GPU it needs the software GL it would
    // otherwise refuse.
    if (::geteuid() == 0 && qEnvironmentVariableIsEmpty("QTWEBENGINE_DISABLE_SANDBOX"))
        qputenv("QTWEBENGINE_DISABLE_SANDBOX", "1");
    if (qEnvironmentVariableIsEmpty("QTWEBENGINE_CHROMIUM_FLAGS"))
        qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--ignore-gpu-blocklist");
    // Web views need one GL context shared by all, set before the
    // application object exists.
    QCoreApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("arraylens"));

    shell::Options options;
    QString error;
    if (!shell::parseOptions(app.arguments().mid(1), options, &error)) {
        std::fprintf(stderr, "arraylens: %s\n\n%s", qPrintable(error),
                     qPrintable(shell::usageText()));
        return 2;
    }
    if (options.help)
        return printUsage();

    shell::DebuggerWindow window(options);
    window.show();
    if (!window.start(&error)) {
        std::fprintf(stderr, "arraylens: %s\n", qPrintable(error));
        if (!options.screenshot.isEmpty())
            return 1;
    }
    if (!options.screenshot.isEmpty()) {
        QObject::connect(
            &window, &shell::DebuggerWindow::screenshotSaved, [](const QString& path, bool ok) {
                if (!ok)
                    std::fprintf(stderr, "arraylens: cannot write %s\n", qPrintable(path));
                QCoreApplication::exit(ok ? 0 : 1);
            });
        // Never wait for ever: whatever is on show after two minutes is saved,
        // and the exit code says the display did not answer.
        QTimer::singleShot(120000, &window, [&window, &options] {
            std::fprintf(stderr, "arraylens: no display answered; saving the window as it is\n");
            window.grab().save(options.screenshot, "PNG");
            QCoreApplication::exit(3);
        });
    }
    return app.exec();
}
