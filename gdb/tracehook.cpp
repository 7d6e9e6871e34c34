#include "tracehook.h"

#include "mi/MiParser.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace arraylens::gdb {

namespace {

bool sendAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t n = ::send(fd, data, size, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= std::size_t(n);
    }
    return true;
}

} // namespace

TraceHook::TraceHook(Handler handler) : handler_(std::move(handler)) {}

TraceHook::~TraceHook() {
    close();
}

bool TraceHook::listen(QString* error) {
    dir_ = std::make_unique<QTemporaryDir>(QDir::tempPath() +
                                           QStringLiteral("/arraylens-trace-XXXXXX"));
    path_ = dir_->filePath(QStringLiteral("hook"));
    const QByteArray name = QFile::encodeName(path_);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (!dir_->isValid() || std::size_t(name.size()) >= sizeof address.sun_path) {
        if (error)
            *error = QStringLiteral("Cannot make a socket for the trace.");
        return false;
    }
    std::memcpy(address.sun_path, name.constData(), std::size_t(name.size()));
    listenFd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listenFd_ < 0 ||
        ::bind(listenFd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listenFd_, 1) != 0) {
        if (error)
            *error = QStringLiteral("Cannot make a socket for the trace: %1")
                         .arg(QString::fromLocal8Bit(std::strerror(errno)));
        return false;
    }
    thread_ = std::thread([this] { serve(); });
    return true;
}

QString TraceHook::installCommand(const QString& expression) const {
    const QString python =
        QStringLiteral("python import arraylens_trace; arraylens_trace.install('%1', '%2')")
            .arg(QString::fromLatin1(QFile::encodeName(path_).toHex()),
                 QString::fromLatin1(expression.toUtf8().toHex()));
    return QStringLiteral("-interpreter-exec console ") +
           QString::fromStdString(mi::quoteCString(python.toStdString()));
}

QString TraceHook::uninstallCommand() {
    return QStringLiteral("-interpreter-exec console \"python import arraylens_trace; "
                          "arraylens_trace.uninstall()\"");
}

void TraceHook::close() {
    closing_.store(true);
    // Wakes the thread in accept() or recv(); gdb's side reads the end of
    // the connection and makes its hit a stop.
    if (listenFd_ >= 0)
        ::shutdown(listenFd_, SHUT_RDWR);
    const int connection = connectionFd_.load();
    if (connection >= 0)
        ::shutdown(connection, SHUT_RDWR);
    if (thread_.joinable())
        thread_.join();
    if (connectionFd_.load() >= 0)
        ::close(connectionFd_.exchange(-1));
    if (listenFd_ >= 0)
        ::close(listenFd_);
    listenFd_ = -1;
}

void TraceHook::serve() {
    const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0)
        return;
    connectionFd_.store(fd);
    if (closing_.load()) {
        ::shutdown(fd, SHUT_RDWR);
        return;
    }
    QByteArray pending;
    char chunk[65536];
    while (!closing_.load()) {
        const int eol = pending.indexOf('\n');
        if (eol < 0) {
            const ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return;
            pending.append(chunk, int(n));
            continue;
        }
        const QJsonObject line = QJsonDocument::fromJson(pending.left(eol)).object();
        pending.remove(0, eol + 1);
        Hit hit;
        hit.frame.thread = line.value(QLatin1String("thread")).toString();
        hit.frame.function = line.value(QLatin1String("func")).toString();
        hit.frame.file = line.value(QLatin1String("file")).toString();
        hit.frame.fullname = line.value(QLatin1String("fullname")).toString();
        hit.frame.line = line.value(QLatin1String("line")).toInt();
        hit.describe = line.value(QLatin1String("describe")).toString();
        const bool go = !closing_.load() && !line.isEmpty() && handler_(hit);
        const char* answer = go ? "go\n" : "stay\n";
        if (!sendAll(fd, answer, std::strlen(answer)))
            return;
    }
}

} // namespace arraylens::gdb
