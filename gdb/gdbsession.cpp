#include "gdbsession.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QTemporaryDir>
#include <QThread>
#include <QTimer>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

// The describer's Python sources live in this static library's resources,
// which have to be registered by hand.
static void initDescriberResources() {
    Q_INIT_RESOURCE(arraylens_gdb_python);
}

namespace arraylens::gdb {

const char* const kDebuggerStoppedMessage = "The debugger has stopped.";

// ------------------------------------------------------------------ MiReply

bool MiReply::wait(int timeoutMs) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return cv_.wait_for(lock, std::chrono::milliseconds(timeoutMs), [this] { return finished_; });
}

bool MiReply::waitProcessingEvents(int timeoutMs) const {
    QElapsedTimer clock;
    clock.start();
    while (!isFinished()) {
        const qint64 left = timeoutMs - clock.elapsed();
        if (left <= 0)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, int(qMin<qint64>(left, 20)));
        if (!isFinished())
            wait(1);
    }
    return true;
}

// With ARRAYLENS_MI_TRACE set, every MI line in and out goes to standard
// error with the milliseconds since the first one: for finding slow commands.
void traceMi(const char* direction, const QByteArray& line) {
    static const bool on = qEnvironmentVariableIsSet("ARRAYLENS_MI_TRACE");
    if (!on)
        return;
    static QElapsedTimer clock;
    if (!clock.isValid())
        clock.start();
    std::fprintf(stderr, "[mi %8lld] %s%s", clock.elapsed(), direction, line.left(300).constData());
    if (line.size() > 300)
        std::fputc('\n', stderr);
}

bool MiReply::isFinished() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return finished_;
}

QString MiReply::errorMessage() const {
    if (lost_)
        return QString::fromLatin1(kDebuggerStoppedMessage);
    return QString::fromStdString(record_.errorMessage());
}

// --------------------------------------------------------------- GdbSession

GdbSession::GdbSession(QObject* parent) : GdbSession(Options(), parent) {}

GdbSession::GdbSession(Options options, QObject* parent)
    : QObject(parent), options_(std::move(options)) {
    qRegisterMetaType<arraylens::mi::Record>("arraylens::mi::Record");
    qRegisterMetaType<arraylens::gdb::GdbSession::TargetState>(
        "arraylens::gdb::GdbSession::TargetState");
}

GdbSession::~GdbSession() {
    if (process_) {
        process_->disconnect(this);
        kill();
    }
    if (ptyMaster_ >= 0)
        ::close(ptyMaster_);
}

bool GdbSession::openTerminal(QString* error) {
    ptyMaster_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (ptyMaster_ < 0 || ::grantpt(ptyMaster_) != 0 || ::unlockpt(ptyMaster_) != 0) {
        if (error)
            *error = QStringLiteral("Cannot open a terminal for the program: %1")
                         .arg(QString::fromLocal8Bit(strerror(errno)));
        return false;
    }
    const char* name = ::ptsname(ptyMaster_);
    ptyPath_ = QString::fromLocal8Bit(name ? name : "");
    // The debuggee writes plain lines; no echo and no CR translation.
    termios tio{};
    if (::tcgetattr(ptyMaster_, &tio) == 0) {
        tio.c_oflag &= ~OPOST;
        tio.c_lflag &= ~(ECHO | ICANON);
        ::tcsetattr(ptyMaster_, TCSANOW, &tio);
    }
    ::fcntl(ptyMaster_, F_SETFL, ::fcntl(ptyMaster_, F_GETFL) | O_NONBLOCK);
    ptyNotifier_ = new QSocketNotifier(ptyMaster_, QSocketNotifier::Read, this);
    connect(ptyNotifier_, &QSocketNotifier::activated, this, &GdbSession::readTerminal);
    return true;
}

void GdbSession::readTerminal() {
    char buffer[4096];
    for (;;) {
        const ssize_t n = ::read(ptyMaster_, buffer, sizeof buffer);
        if (n > 0) {
            emit inferiorOutput(QByteArray(buffer, int(n)));
            continue;
        }
        // EIO: nobody holds the slave side any more; wait for the next one.
        if (n < 0 && errno == EIO)
            ptyNotifier_->setEnabled(false);
        break;
    }
}

void GdbSession::drainTerminal() {
    if (ptyMaster_ >= 0)
        readTerminal();
}

bool GdbSession::start(const QString& program, const QStringList& programArgs, QString* error) {
    if (process_) {
        if (error)
            *error = QStringLiteral("The debugger is already running.");
        return false;
    }
    if (options_.inferiorTerminal && !openTerminal(error))
        return false;

    process_ = new QProcess(this);
    process_->setProcessChannelMode(QProcess::SeparateChannels);
    connect(process_, &QProcess::readyReadStandardOutput, this, &GdbSession::readOutput);
    connect(process_, &QProcess::readyReadStandardError, this,
            [this] { emit streamText(QString::fromLocal8Bit(process_->readAllStandardError())); });
    connect(process_, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished), this,
            &GdbSession::handleProcessGone);
    connect(process_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError e) {
        if (e == QProcess::FailedToStart || e == QProcess::Crashed)
            handleProcessGone();
    });

    QStringList args{QStringLiteral("--interpreter=mi3"), QStringLiteral("-q"),
                     QStringLiteral("-nx")};
    if (!program.isEmpty()) {
        args << QStringLiteral("--args") << program << programArgs;
    }
    process_->start(options_.gdbPath, args);
    if (!process_->waitForStarted(10000)) {
        if (error)
            *error = QStringLiteral("Cannot start %1: %2")
                         .arg(options_.gdbPath, process_->errorString());
        process_->deleteLater();
        process_ = nullptr;
        return false;
    }
    alive_ = true;

    // Settings of every session: whole values however big, no questions,
    // no paging, and commands accepted while the debuggee runs.
    for (const char* setting : {"-gdb-set mi-async on", "-gdb-set print elements unlimited",
                                "-gdb-set print repeats unlimited",
                                "-gdb-set max-value-size unlimited", "-gdb-set confirm off",
                                "-gdb-set pagination off", "-gdb-set width 0", "-gdb-set height 0"})
        send(QString::fromLatin1(setting));
    if (!ptyPath_.isEmpty())
        send(QStringLiteral("-inferior-tty-set ") +
             QString::fromStdString(mi::quoteCString(ptyPath_.toStdString())));
    if (!installDescriber(error)) {
        kill();
        return false;
    }
    emit started();
    return true;
}

bool GdbSession::installDescriber(QString* error) {
    initDescriberResources();
    pythonDir_ =
        std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/arraylens-gdb-XXXXXX"));
    if (!pythonDir_->isValid()) {
        if (error)
            *error = QStringLiteral("Cannot make a folder for the debugger's scripts: %1")
                         .arg(pythonDir_->errorString());
        return false;
    }
    const QDir source(QStringLiteral(":/arraylens/gdb"));
    for (const QString& name : source.entryList(QDir::Files)) {
        QFile in(source.filePath(name));
        QFile out(pythonDir_->filePath(name));
        if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::WriteOnly) ||
            out.write(in.readAll()) < 0) {
            if (error)
                *error = QStringLiteral("Cannot write the debugger's script %1: %2")
                             .arg(out.fileName(), out.errorString());
            return false;
        }
    }
    // The folder goes in as hexadecimal: no path can break the command.
    const QByteArray dir = QFile::encodeName(pythonDir_->path()).toHex();
    send(QStringLiteral("-interpreter-exec console \"python import sys; "
                        "sys.path.insert(0, bytes.fromhex('%1').decode()); import %2\"")
             .arg(QString::fromLatin1(dir), QLatin1String(describerModule())));
    return true;
}

void GdbSession::shutdown() {
    if (!process_ || !alive_)
        return;
    send(QStringLiteral("-gdb-exit"));
    QPointer<QProcess> p = process_;
    QTimer::singleShot(2000, this, [this, p] {
        if (p && p == process_ && alive_)
            kill();
    });
}

void GdbSession::kill() {
    if (!process_)
        return;
    // A debuggee that gdb started does not outlive it.
    const qint64 debuggee = pid_.load();
    if (debuggee > 0 && localProcess_ && killDebuggee_)
        ::kill(pid_t(debuggee), SIGKILL);
    process_->kill();
    process_->waitForFinished(3000);
}

MiReplyPtr GdbSession::send(const QString& command, MiReply::Callback callback) {
    auto reply = std::make_shared<MiReply>();
    reply->command_ = command;
    reply->token_ = nextToken_.fetch_add(1);
    reply->callback_ = std::move(callback);
    if (QThread::currentThread() == thread()) {
        enqueue(reply);
    } else if (!alive_) {
        // Fails at once, without a round trip through the event loop.
        reply->lost_ = true;
        std::lock_guard<std::mutex> lock(reply->mutex_);
        reply->finished_ = true;
    } else {
        QPointer<GdbSession> self(this);
        const bool queued = QMetaObject::invokeMethod(
            this,
            [self, reply] {
                if (self)
                    self->enqueue(reply);
            },
            Qt::QueuedConnection);
        if (!queued) {
            reply->lost_ = true;
            std::lock_guard<std::mutex> lock(reply->mutex_);
            reply->finished_ = true;
            reply->cv_.notify_all();
        }
    }
    return reply;
}

void GdbSession::enqueue(const MiReplyPtr& reply) {
    if (!alive_) {
        reply->lost_ = true;
        finish(reply);
        return;
    }
    queue_.push_back(reply);
    writeNext();
}

void GdbSession::writeNext() {
    if (inFlight_ || queue_.empty() || !alive_)
        return;
    inFlight_ = queue_.front();
    queue_.pop_front();
    consoleBuffer_.clear();
    QByteArray line = QByteArray::number(inFlight_->token_) + inFlight_->command_.toUtf8();
    // A command is one line: the text a user typed reaches gdb only inside
    // quoted C strings, where line breaks are escaped.
    line.replace('\n', ' ');
    line.replace('\r', ' ');
    line.append('\n');
    traceMi("> ", line);
    process_->write(line);
}

void GdbSession::readOutput() {
    pending_ += process_->readAllStandardOutput();
    int start = 0;
    for (;;) {
        const int nl = pending_.indexOf('\n', start);
        if (nl < 0)
            break;
        handleLine(pending_.mid(start, nl - start));
        start = nl + 1;
    }
    pending_.remove(0, start);
}

void GdbSession::handleLine(const QByteArray& line) {
    traceMi("< ", line + '\n');
    const mi::Record record =
        mi::parseLine(std::string_view(line.constData(), size_t(line.size())));
    switch (record.kind) {
    case mi::RecordKind::Result: {
        answered_ = true;
        if (inFlight_ && record.token && *record.token == inFlight_->token_) {
            MiReplyPtr reply = std::move(inFlight_);
            inFlight_.reset();
            reply->record_ = record;
            reply->console_ = consoleBuffer_;
            consoleBuffer_.clear();
            // The debuggee runs from this answer on, even before the
            // *running record that follows it has been read.
            if (record.resultClass == mi::ResultClass::Running) {
                runGeneration_.fetch_add(1);
                setTargetState(TargetState::Running);
            }
            finish(reply);
            writeNext();
        }
        break;
    }
    case mi::RecordKind::ConsoleStream:
        consoleBuffer_ += QString::fromStdString(record.text);
        if (!answered_)
            startupText_ += QString::fromStdString(record.text);
        emit streamText(QString::fromStdString(record.text));
        break;
    case mi::RecordKind::LogStream:
    case mi::RecordKind::TargetStream:
        if (!answered_)
            startupText_ += QString::fromStdString(record.text);
        emit streamText(QString::fromStdString(record.text));
        break;
    case mi::RecordKind::ExecAsync:
    case mi::RecordKind::NotifyAsync:
    case mi::RecordKind::StatusAsync: {
        if (record.klass == "running") {
            runGeneration_.fetch_add(1);
            setTargetState(TargetState::Running);
        } else if (record.klass == "stopped") {
            const std::string reason = record.results["reason"].asString();
            if (reason.rfind("exited", 0) == 0) {
                pid_ = 0;
                setTargetState(TargetState::Exited);
            } else {
                {
                    std::lock_guard<std::mutex> lock(stateMutex_);
                    const std::string thread = record.results["thread-id"].asString();
                    if (!thread.empty())
                        stoppedThread_ = QString::fromStdString(thread);
                }
                setTargetState(TargetState::Stopped);
            }
        } else if (record.klass == "thread-group-started") {
            pid_ = QString::fromStdString(record.results["pid"].asString()).toLongLong();
        } else if (record.klass == "thread-group-exited") {
            pid_ = 0;
            setTargetState(TargetState::Exited);
        }
        emit asyncRecord(record);
        break;
    }
    case mi::RecordKind::Prompt:
    case mi::RecordKind::Malformed:
        break;
    }
}

void GdbSession::finish(const MiReplyPtr& reply) {
    {
        std::lock_guard<std::mutex> lock(reply->mutex_);
        reply->finished_ = true;
    }
    reply->cv_.notify_all();
    if (reply->callback_)
        reply->callback_(*reply);
}

void GdbSession::handleProcessGone() {
    if (!alive_.exchange(false))
        return;
    // A debuggee left behind by a gdb that died would stay stopped forever.
    const qint64 debuggee = pid_.exchange(0);
    if (debuggee > 0 && localProcess_ && killDebuggee_)
        ::kill(pid_t(debuggee), SIGKILL);
    std::deque<MiReplyPtr> open;
    open.swap(queue_);
    if (inFlight_)
        open.push_front(std::move(inFlight_));
    inFlight_.reset();
    for (const MiReplyPtr& reply : open) {
        reply->lost_ = true;
        finish(reply);
    }
    setTargetState(TargetState::None);
    emit died();
}

void GdbSession::setTargetState(TargetState state) {
    if (targetState_.exchange(state) != state)
        emit targetStateChanged(state);
}

QString GdbSession::stoppedThread() const {
    std::lock_guard<std::mutex> lock(stateMutex_);
    return stoppedThread_;
}

void GdbSession::setCoreFile(const QString& path) {
    std::lock_guard<std::mutex> lock(stateMutex_);
    // gdb runs in this process's working directory: the same file.
    coreFile_ = path.isEmpty() ? QString() : QFileInfo(path).absoluteFilePath();
    localProcess_ = false;
}

QString GdbSession::coreFile() const {
    std::lock_guard<std::mutex> lock(stateMutex_);
    return coreFile_;
}

bool GdbSession::readsMemoryDirectly() const {
    return localProcess_ && !options_.memoryThroughGdb && pid_.load() > 0;
}

} // namespace arraylens::gdb
