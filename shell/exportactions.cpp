#include "shell/exportactions.h"

#include "arrayexport.h"
#include "gdbdebugger.h"

#include "host/hvexpression.h"

#include <QFileDialog>
#include <QFutureWatcher>
#include <QMenu>
#include <QPointer>

namespace shell {

SavePathChooser& savePathChooser() {
    static SavePathChooser chooser;
    return chooser;
}

namespace {

QString choosePath(QWidget* parent, const QString& suggested, const QString& filter) {
    if (savePathChooser())
        return savePathChooser()(suggested, filter);
    return QFileDialog::getSaveFileName(parent, QStringLiteral("Save array"), suggested, filter);
}

// A file name from an expression: `*(double(*)[40][60])u` gives "u".
QString suggestedName(const QString& expression, const QString& extension) {
    QString base;
    for (const QChar c : expression)
        base += c.isLetterOrNumber() || c == QLatin1Char('_') ? c : QLatin1Char(' ');
    const QStringList words = base.simplified().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    return (words.isEmpty() ? QStringLiteral("array") : words.last()) + extension;
}

} // namespace

void addExportActions(QMenu* menu, IHVExpression* expression, arraylens::gdb::GdbDebugger* debugger,
                      QWidget* dialogParent, std::function<void(const QString&)> report) {
    if (!menu || !expression || !debugger || !expression->isArray())
        return;
    menu->addSeparator();
    struct Kind {
        const char* label;
        const char* id;
        const char* extension;
        const char* filter;
    };
    static const Kind kinds[] = {
        {"Save as .npy…", "com.arraylens.dataview.popup.savenpy", ".npy", "numpy arrays (*.npy)"},
        {"Save as CSV…", "com.arraylens.dataview.popup.savecsv", ".csv", "CSV files (*.csv)"},
    };
    QPointer<arraylens::gdb::GdbDebugger> service(debugger);
    QPointer<QWidget> parent(dialogParent);
    for (const Kind& kind : kinds) {
        QAction* action = menu->addAction(QString::fromUtf8(kind.label));
        action->setObjectName(QString::fromLatin1(kind.id));
        // The request is built from the expression now: the menu (and the
        // expression with it) is gone by the time the dialog closes.
        const QString extension = QString::fromLatin1(kind.extension);
        const QString filter = QString::fromLatin1(kind.filter);
        const QString text = expression->getExpression();
        HVDWPRequest request = arraylens::gdb::exportRequest(expression, QString(), QString(), {});
        QObject::connect(action, &QAction::triggered, [=]() mutable {
            const QString path = choosePath(parent, suggestedName(text, extension), filter);
            if (path.isEmpty() || !service)
                return;
            request.propertyBag->setProperty("OutFile", path);
            auto* watcher = new QFutureWatcher<QSharedPointer<QObject>>(service);
            QObject::connect(watcher, &QFutureWatcherBase::finished, [watcher, report, path] {
                const QSharedPointer<QObject> bag = watcher->result();
                watcher->deleteLater();
                if (bag->property("result").toString() == QLatin1String("done"))
                    report(QStringLiteral("Saved %1 elements to %2.")
                               .arg(bag->property("Count").toULongLong())
                               .arg(path));
                else
                    report(bag->property("msg").toString());
            });
            watcher->setFuture(service->sendRequest(request));
        });
    }
}

} // namespace shell
