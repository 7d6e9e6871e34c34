#include "jsonwriter.h"

#include <QBitArray>
#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <charconv>
#include <cmath>
#include <cstring>

namespace arraylens::cli {

namespace {

QByteArray quoted(const QString& text) {
    // Escapes work on the UTF-8 bytes: every byte of a multi-byte sequence
    // is 0x80 or above and passes through untouched.
    const QByteArray utf8 = text.toUtf8();
    QByteArray out = "\"";
    for (const char ch : utf8) {
        const unsigned char c = static_cast<unsigned char>(ch);
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (c < 0x20)
                out += QByteArray("\\u") + QByteArray::number(c, 16).rightJustified(4, '0');
            else
                out += ch;
        }
    }
    return out + "\"";
}

QByteArray doubleText(double d) {
    if (std::isnan(d))
        return "\"nan\"";
    if (std::isinf(d))
        return d < 0 ? "\"-inf\"" : "\"inf\"";
    // The shortest text that reads back to the same double.
    char buffer[64];
    const auto r = std::to_chars(buffer, buffer + sizeof buffer, d);
    return QByteArray(buffer, int(r.ptr - buffer));
}

} // namespace

QByteArray valueToJson(const QVariant& value, const QByteArray& name) {
    switch (int(value.userType())) {
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        return "null";
    case QMetaType::Bool:
        return value.toBool() ? "true" : "false";
    case QMetaType::Int:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::LongLong:
        return QByteArray::number(value.toLongLong());
    case QMetaType::UInt:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
        return QByteArray::number(value.toULongLong());
    case QMetaType::Double:
    case QMetaType::Float:
        return doubleText(value.toDouble());
    case QMetaType::QString:
        return quoted(value.toString());
    case QMetaType::QBitArray: {
        const QBitArray bits = value.toBitArray();
        QString text;
        for (int i = 0; i < bits.size(); ++i)
            text += bits.testBit(i) ? QLatin1Char('1') : QLatin1Char('0');
        return quoted(text);
    }
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        if (name == "AllEvaluations") {
            QByteArray out = "[";
            const int n = bytes.size() / 8;
            for (int i = 0; i < n; ++i) {
                double d;
                std::memcpy(&d, bytes.constData() + 8 * i, 8);
                if (i)
                    out += ',';
                out += doubleText(d);
            }
            return out + "]";
        }
        return quoted(QString::fromLatin1(bytes.toBase64()));
    }
    case QMetaType::QStringList: {
        QByteArray out = "[";
        const QStringList list = value.toStringList();
        for (int i = 0; i < list.size(); ++i)
            out += (i ? "," : "") + quoted(list[i]);
        return out + "]";
    }
    case QMetaType::QVariantList: {
        QByteArray out = "[";
        const QVariantList list = value.toList();
        for (int i = 0; i < list.size(); ++i)
            out += (i ? "," : "") + valueToJson(list[i]);
        return out + "]";
    }
    case QMetaType::QVariantMap: {
        QByteArray out = "{";
        const QVariantMap map = value.toMap();
        bool first = true;
        for (auto it = map.begin(); it != map.end(); ++it) {
            out += (first ? "" : ",") + quoted(it.key()) + ':' +
                   valueToJson(it.value(), it.key().toUtf8());
            first = false;
        }
        return out + "}";
    }
    default:
        break;
    }
    // A value wrapped in a QVariant, and anything else that converts.
    if (value.userType() == qMetaTypeId<QVariant>())
        return valueToJson(value.value<QVariant>(), name);
    return quoted(value.toString());
}

QByteArray bagToJson(const QObject* bag) {
    QByteArray out = "{";
    if (bag) {
        bool first = true;
        for (const QByteArray& name : bag->dynamicPropertyNames()) {
            out += (first ? "" : ",") + quoted(QString::fromUtf8(name)) + ':' +
                   valueToJson(bag->property(name.constData()), name);
            first = false;
        }
    }
    return out + "}";
}

} // namespace arraylens::cli
