#include "runcontrol.h"

#include "gdbtypes.h"

#include <QFileInfo>
#include <QStringList>

namespace arraylens::gdb {

namespace {

QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

QString quoted(const QString& text) {
    return QString::fromStdString(mi::quoteCString(text.toStdString()));
}

// Where " if" starts the condition: at a blank outside quotes, followed by a
// blank or the end of the text. -1 when there is none.
int conditionKeyword(const QString& text) {
    return firstOutsideQuotes(text, [&](int i) {
        if (!text[i].isSpace() || text.midRef(i + 1, 2) != QLatin1String("if"))
            return false;
        const int after = i + 3;
        return after == text.size() || text[after].isSpace();
    });
}

// A frame as "func (file:line)", or the address when gdb knows no more.
QString frameText(const mi::Value& frame) {
    QString where = qs(frame["func"].asString());
    if (where.isEmpty())
        where = qs(frame["addr"].asString());
    const QString file = qs(frame["file"].asString());
    if (!file.isEmpty())
        where += QStringLiteral(" (%1:%2)")
                     .arg(QFileInfo(file).fileName(), qs(frame["line"].asString()));
    return where;
}

// A frame of the program itself: one whose source is there to show.
bool ownFrame(const mi::Value& frame) {
    const QString path = qs(frame["fullname"].asString());
    return !path.isEmpty() && QFileInfo::exists(path);
}

} // namespace

bool parseBreakSpec(const QString& text, BreakSpec& spec, QString* error) {
    auto fail = [&](const QString& why) {
        if (error)
            *error = why;
        return false;
    };
    spec = BreakSpec();
    const int at = conditionKeyword(text);
    spec.location = (at < 0 ? text : text.left(at)).trimmed();
    if (spec.location.isEmpty())
        return fail(QStringLiteral("The breakpoint '%1' has no location.").arg(text.trimmed()));
    if (at >= 0) {
        spec.condition = text.mid(at + 3).trimmed();
        if (spec.condition.isEmpty())
            return fail(QStringLiteral("The condition after 'if' in the breakpoint '%1' is empty.")
                            .arg(text.trimmed()));
    }
    return true;
}

QString breakInsertCommand(const BreakSpec& spec, int ignoreCount) {
    QString command = QStringLiteral("-break-insert");
    if (!spec.condition.isEmpty())
        command += QStringLiteral(" -c ") + quoted(spec.condition);
    if (ignoreCount > 0)
        command += QStringLiteral(" -i %1").arg(ignoreCount);
    return command + QLatin1Char(' ') + quoted(spec.location);
}

QString programNotFoundText(const QString& program, const mi::Value& groups,
                            const QString& startup) {
    for (const auto& group : groups.members())
        if (!group.value["executable"].asString().empty())
            return {};
    // gdb's own words name the file first: "/no/such: No such file or directory."
    QString reason;
    for (const QString& line : startup.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
        if (line.startsWith(program + QStringLiteral(": "))) {
            reason = line.mid(program.size() + 2).trimmed();
            if (reason.endsWith(QLatin1Char('.')))
                reason.chop(1);
        }
    QString text = QStringLiteral("The program %1 was not found").arg(program);
    if (!reason.isEmpty())
        text += QStringLiteral(" (%1)").arg(reason);
    return text + QLatin1Char('.');
}

QString unexpectedStopText(const mi::Value& stop, const mi::Value& stack) {
    const QString reason = qs(stop["reason"].asString());
    if (reason != QLatin1String("signal-received"))
        return {};
    QString signal = qs(stop["signal-name"].asString());
    const QString meaning = qs(stop["signal-meaning"].asString());
    if (signal.isEmpty())
        signal = QStringLiteral("a signal");
    if (!meaning.isEmpty())
        signal += QStringLiteral(" (%1)").arg(meaning);
    const mi::Value& frame = stop["frame"];
    QString text = QStringLiteral("The program stopped at %1 in %2").arg(signal, frameText(frame));
    // Deep in the C library the stop says little: name the program's own
    // function the signal came from.
    if (!ownFrame(frame)) {
        for (const mi::Value* f : stack.all("frame"))
            if (ownFrame(*f)) {
                text += QStringLiteral(", called from %1").arg(frameText(*f));
                break;
            }
    }
    return text + QStringLiteral(", before reaching a breakpoint.");
}

} // namespace arraylens::gdb
