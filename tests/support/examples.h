#pragma once
// Where the example programs are and where they stop. The test target
// defines ARRAYLENS_BREAK_LOCATIONS (the break-locations.txt that configuring
// the examples writes) and ARRAYLENS_EXAMPLES_BIN (the folder of the built
// programs).

#include <QFile>
#include <QString>
#include <QTextStream>

namespace examples {

// The location of a stop, "heat.heat" giving "/path/heat.c:124"; empty when
// the file or the stop is missing.
inline QString breakLocation(const QString& key) {
    QFile f(QStringLiteral(ARRAYLENS_BREAK_LOCATIONS));
    if (!f.open(QIODevice::ReadOnly))
        return QString();
    QTextStream in(&f);
    while (!in.atEnd()) {
        const QString line = in.readLine();
        if (line.startsWith(key + QLatin1Char('=')))
            return line.mid(key.size() + 1);
    }
    return QString();
}

#ifdef ARRAYLENS_EXAMPLES_BIN
inline QString program(const QString& name) {
    return QStringLiteral(ARRAYLENS_EXAMPLES_BIN) + QLatin1Char('/') + name;
}
#endif

} // namespace examples
