#pragma once
// Reading gdb's MI answers as the window's lists need them.

#include "arrayoperations.h"
#include "gdbdebugger.h"
#include "gdbsession.h"

#include <QVariantMap>

namespace shell {

inline QVariantMap resultsOf(const arraylens::gdb::MiReply& reply) {
    return arraylens::gdb::toVariant(reply.record().results).toMap();
}

// A frame entry of an MI answer as the service's frame record.
inline arraylens::gdb::FrameInfo frameInfo(const QVariantMap& frame, const QString& thread) {
    arraylens::gdb::FrameInfo info;
    info.thread = thread;
    info.level = frame.value(QStringLiteral("level")).toInt();
    info.function = frame.value(QStringLiteral("func")).toString();
    info.file = frame.value(QStringLiteral("file")).toString();
    info.fullname = frame.value(QStringLiteral("fullname")).toString();
    info.address = frame.value(QStringLiteral("addr")).toString();
    info.line = frame.value(QStringLiteral("line")).toInt();
    return info;
}

} // namespace shell
