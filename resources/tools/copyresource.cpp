// Build-time helper: writes a file out of a Qt library's own resources, so
// that the plug-in can carry an exact copy of a script the library ships
// (the web channel's page script).
//
//   copyresource <resource path> <output file>
#include <QCoreApplication>
#include <QFile>
#include <QWebChannel>
#include <cstdio>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc != 3) {
        std::fprintf(stderr, "usage: copyresource <resource path> <output file>\n");
        return 2;
    }
    // Keeps the web channel library loaded, and with it its resources.
    QWebChannel channel;
    QFile in(QString::fromLocal8Bit(argv[1]));
    if (!in.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "copyresource: cannot read %s\n", argv[1]);
        return 1;
    }
    const QByteArray bytes = in.readAll();
    QFile out(QString::fromLocal8Bit(argv[2]));
    if (bytes.isEmpty() || !out.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        out.write(bytes) != bytes.size()) {
        std::fprintf(stderr, "copyresource: cannot write %s\n", argv[2]);
        return 1;
    }
    return 0;
}
