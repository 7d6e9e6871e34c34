// Runs of arraylens-cli on the example programs, and the example programs'
// own reference files, for the tests of whole runs.
#pragma once

#include "support/examples.h"

#include <QByteArray>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTextStream>

namespace clitest {

struct CliResult {
    int exitCode = -1;
    QByteArray out, err;
    // Standard output, one JSON object a line.
    QList<QJsonObject> lines() const {
        QList<QJsonObject> all;
        for (const QByteArray& line : out.split('\n'))
            if (!line.trimmed().isEmpty())
                all << QJsonDocument::fromJson(line).object();
        return all;
    }
};

inline CliResult cli(const QStringList& args, int timeoutMs = 110000) {
    QProcess p;
    p.start(QStringLiteral(ARRAYLENS_CLI), args);
    CliResult r;
    if (!p.waitForFinished(timeoutMs)) {
        p.kill();
        p.waitForFinished();
        return r;
    }
    r.exitCode = p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

// A reference file as its stops: element 0 holds what comes before the
// first "stop=" line, element k what stop k wrote (and what the program
// wrote after it, before the next stop). Later keys win within a stop.
inline QList<QMap<QString, QString>> referenceStops(const QString& path) {
    QList<QMap<QString, QString>> stops{{}};
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return stops;
    QTextStream in(&f);
    while (!in.atEnd()) {
        const QString line = in.readLine();
        const int eq = line.indexOf('=');
        if (eq <= 0 || line.startsWith('#'))
            continue;
        if (line.startsWith(QLatin1String("stop=")))
            stops.append(QMap<QString, QString>());
        stops.last().insert(line.left(eq), line.mid(eq + 1));
    }
    return stops;
}

} // namespace clitest
