#include "describer.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace arraylens::gdb {

namespace {

const QLatin1String kMarker("arraylens-describe: ");

// Numbers that may not fit in a double come as decimal strings; addresses
// always do.
bool readInteger(const QJsonValue& v, qint64& out) {
    bool ok = false;
    out = v.isString() ? v.toString().toLongLong(&ok) : qint64(v.toDouble());
    return v.isString() ? ok : v.isDouble();
}

bool readAddress(const QJsonValue& v, quint64& out) {
    bool ok = false;
    out = v.toString().toULongLong(&ok);
    return ok;
}

} // namespace

QString describerCommand(const QString& expression, bool layout, const QString& castElement) {
    QString command = QStringLiteral("python %1.describe('%2', %3")
                          .arg(QLatin1String(GdbSession::describerModule()),
                               QString::fromLatin1(expression.toUtf8().toHex()),
                               layout ? QStringLiteral("True") : QStringLiteral("False"));
    if (!castElement.isEmpty())
        command += QStringLiteral(", '%1'").arg(QString::fromLatin1(castElement.toUtf8().toHex()));
    return command + QLatin1Char(')');
}

Failure::Kind failureKindOf(const QString& msg) {
    if (msg.contains(QLatin1String("while the target is running")) ||
        msg.contains(QLatin1String("Selected thread is running")))
        return Failure::Kind::Running;
    if (msg.contains(QLatin1String("The program is not being run")) ||
        msg.contains(QLatin1String("No registers")) || msg.contains(QLatin1String("No stack")) ||
        msg.contains(QLatin1String("No frame selected")))
        return Failure::Kind::Exited;
    return Failure::Kind::Gdb;
}

bool readDescriberReply(const QString& console, ArrayFacts& facts, Failure& failure,
                        CastElement* cast) {
    const int at = console.lastIndexOf(kMarker);
    if (at < 0) {
        // No line at all: gdb refused the command before the describer ran
        // (a gdb without Python says so in its own words).
        const QString said = console.trimmed();
        failure = {Failure::Kind::Gdb,
                   said.isEmpty() ? QStringLiteral("The debugger did not describe the expression.")
                                  : said};
        return false;
    }
    const int start = at + kMarker.size();
    const int end = console.indexOf(QLatin1Char('\n'), start);
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(
        console.mid(start, end < 0 ? -1 : end - start).toUtf8(), &parseError);
    if (!doc.isObject()) {
        failure = {Failure::Kind::Gdb,
                   QStringLiteral("Cannot read the debugger's description of the expression: %1.")
                       .arg(parseError.errorString())};
        return false;
    }
    const QJsonObject o = doc.object();
    facts.language = o.value(QLatin1String("language")).toString();
    facts.fortran = isFortranLanguage(facts.language);
    facts.typeText = o.value(QLatin1String("type")).toString();
    facts.isArray = o.value(QLatin1String("isArray")).toBool();
    facts.isPointer = o.value(QLatin1String("isPointer")).toBool();
    facts.refusal = o.value(QLatin1String("refusal")).toString();
    facts.elementHint = o.value(QLatin1String("elementHint")).toString();
    facts.family = o.value(QLatin1String("family")).toString();
    facts.elementType = o.value(QLatin1String("element")).toString();
    facts.elementSize = o.value(QLatin1String("elementSize")).toInt();
    facts.hasValueAddress = readAddress(o.value(QLatin1String("valueAddress")), facts.valueAddress);
    readAddress(o.value(QLatin1String("address")), facts.address);
    qint64 number = 0;
    for (const QJsonValue& d : o.value(QLatin1String("dims")).toArray()) {
        const QJsonArray pair = d.toArray();
        DimBounds b;
        if (pair.size() != 2 || !readInteger(pair[0], b.lower) || !readInteger(pair[1], b.upper)) {
            failure = {Failure::Kind::Gdb,
                       QStringLiteral("Cannot read the bounds of '%1'.").arg(facts.expression)};
            return false;
        }
        facts.dims.append(b);
    }
    for (const QJsonValue& s : o.value(QLatin1String("byteStrides")).toArray()) {
        if (!readInteger(s, number)) {
            failure = {Failure::Kind::Gdb,
                       QStringLiteral("Cannot read the strides of '%1'.").arg(facts.expression)};
            return false;
        }
        facts.byteStrides.append(number);
    }
    facts.problem = o.value(QLatin1String("problem")).toString();
    if (o.value(QLatin1String("shapeUnknown")).toBool()) {
        // gdb's type text says why: not allocated, assumed size, `[]`.
        const TypeShape shape =
            facts.fortran ? parseFortranType(facts.typeText) : parseCType(facts.typeText);
        facts.dims = shape.dims;
        facts.problem = shape.problem.isEmpty() ? QStringLiteral("The array's shape is not known.")
                                                : shape.problem;
    }
    if (o.contains(QLatin1String("error"))) {
        const QString message = o.value(QLatin1String("error")).toString();
        const QString kind = o.value(QLatin1String("kind")).toString();
        failure.message = message;
        failure.kind = kind == QLatin1String("notarray") ? Failure::Kind::NotArray
                       : kind == QLatin1String("type")   ? Failure::Kind::Type
                                                         : failureKindOf(message);
        return false;
    }
    if (cast) {
        cast->type = o.value(QLatin1String("castElement")).toString();
        cast->size = o.value(QLatin1String("castElementSize")).toInt();
    }
    return true;
}

} // namespace arraylens::gdb
