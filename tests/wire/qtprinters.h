#pragma once
// Readable failure output for the Qt values the wire tests compare.

#include <QByteArray>
#include <QString>
#include <QVariant>
#include <ostream>

inline void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QByteArray& bytes, std::ostream* os) {
    *os << '"' << bytes.toStdString() << '"';
}

inline void PrintTo(const QVariant& value, std::ostream* os) {
    const char* type = value.typeName();
    *os << (type ? type : "invalid") << '(' << value.toString().toStdString() << ')';
}
