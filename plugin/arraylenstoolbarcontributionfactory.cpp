#include "plugin/arraylenstoolbarcontributionfactory.h"

#include "plugin/arraylenscommandhandler.h"
#include "plugin/arraylensconstants.h"
#include "plugin/arraylensview.h"
#include "plugin/noadjustcombobox.h"

#include <QAction>
#include <QIcon>
#include <QLineEdit>
#include <QPushButton>
#include <QWidgetAction>

using namespace HVUI::Constants;

namespace {

QIcon displayIcon(const char* name) {
    const QString base = QStringLiteral(":/arraylens/icons/%1_15px-").arg(QLatin1String(name));
    const QPixmap orange(base + QStringLiteral("orange.png"));
    const QPixmap gray(base + QStringLiteral("darkgray.png"));
    QIcon icon;
    icon.addPixmap(orange, QIcon::Normal, QIcon::On);
    icon.addPixmap(orange, QIcon::Active, QIcon::Off);
    icon.addPixmap(gray, QIcon::Normal, QIcon::Off);
    return icon;
}

} // namespace

ArrayLensToolBarContributionFactory::ArrayLensToolBarContributionFactory(const QString& location,
                                                                         ArrayLensView* view)
    : QObject(nullptr), view(view), location(location) {}

QString ArrayLensToolBarContributionFactory::getLocation() const {
    return location;
}

QPushButton* ArrayLensToolBarContributionFactory::makeLabelButton(const QString& text,
                                                                  const QString& objectName) {
    auto* button = new QPushButton(text);
    button->setObjectName(objectName);
    button->setProperty("style", QStringLiteral("no-border-button"));
    button->setFlat(true);
    // A status display, not something to press.
    button->setEnabled(false);
    return button;
}

NQ::IContributionItem* ArrayLensToolBarContributionFactory::separator(int number) {
    return NQ::ICore::instance()->commandManager()->createSeparator(
        QString::fromLatin1(ARRAYLENS_SEPARATOR_PREFIX) + QString::number(number));
}

QList<NQ::IContributionItem*> ArrayLensToolBarContributionFactory::createItems() {
    NQ::ICore* core = NQ::ICore::instance();
    NQ::ICommandManager* commands = core->commandManager();
    NQ::IContextManager* contexts = core->contextManager();
    QList<NQ::IContributionItem*> items;

    // The Update button starts unavailable; a stop of the debuggee offers it.
    contexts->registerContext(QString::fromLatin1(ARRAYLENS_UPDATE_CONTEXT));
    contexts->deactivateContext(QString::fromLatin1(ARRAYLENS_UPDATE_CONTEXT));

    // 1: thread label.
    threadButton = makeLabelButton(QStringLiteral("No Thread"), QStringLiteral("ThreadString"));
    auto* threadAction = new QWidgetAction(this);
    threadAction->setDefaultWidget(threadButton);
    items << commands->createActionContribution(
        threadAction, QString::fromLatin1(ARRAYLENS_THREAD_COMMAND),
        QStringLiteral("com.arraylens.threadid"), true, false);
    // 2
    items << separator(1);

    // 3: type label.
    typeButton = makeLabelButton(QStringLiteral("Type: None"), QStringLiteral("TypeString"));
    auto* typeAction = new QWidgetAction(this);
    typeAction->setDefaultWidget(typeButton);
    items << commands->createActionContribution(typeAction,
                                                QString::fromLatin1(ARRAYLENS_TYPE_STRING_COMMAND),
                                                QStringLiteral("com.arraylens.type"), true, false);

    // 4: the expression field. Typed text only enters the list when the
    // controller has shown the expression once.
    comboBox = new NoAdjustComboBox(view);
    comboBox->setObjectName(QStringLiteral("ArrayLensComboBox"));
    comboBox->setEditable(true);
    comboBox->setSizeAdjustPolicy(QComboBox::AdjustToContentsOnFirstShow);
    comboBox->setCurrentIndex(-1);
    comboBox->setInsertPolicy(QComboBox::NoInsert);
    comboBox->setCompleter(nullptr);
    comboBox->setDuplicatesEnabled(false);
    comboBox->lineEdit()->setPlaceholderText(QStringLiteral("[Enter Array]"));
    comboBox->setMaximumWidth(125);
    auto* comboAction = new QWidgetAction(this);
    comboAction->setDefaultWidget(comboBox);
    commands->registerCommand(QString::fromLatin1(ARRAYLENS_SLICE_COMMAND));
    commands->setCommandHandler(QString::fromLatin1(ARRAYLENS_SLICE_COMMAND),
                                new ArrayLensSliceCommandHandler(view));
    items << commands->createActionContribution(comboAction,
                                                QString::fromLatin1(ARRAYLENS_SLICE_COMMAND),
                                                QStringLiteral("Array Slicing"), true, false);

    // 5: slice label.
    sliceButton = makeLabelButton(QStringLiteral("Slice: None"), QStringLiteral("SliceString"));
    auto* sliceAction = new QWidgetAction(this);
    sliceAction->setDefaultWidget(sliceButton);
    items << commands->createActionContribution(sliceAction,
                                                QString::fromLatin1(ARRAYLENS_SLICE_STRING_COMMAND),
                                                QStringLiteral("com.arraylens.slice"), true, false);
    // 6
    items << separator(2);

    // 7: the display menu.
    const QString menuLocation = QString::fromLatin1(ARRAYLENS_TOOLBAR_MENU);
    NQ::IContributionManager* menu =
        commands->createMenuContribution(QStringLiteral("Statistics"), menuLocation);

    struct MenuEntry {
        const char* text;
        const char* icon;
        const char* command;
        const char* suffix;
        bool checked;
    };
    // The last two suffixes have no leading dot; the ids the host already
    // knows them by are kept.
    static const MenuEntry entries[] = {
        {"Statistics", "stats", ARRAYSTAT_COMMAND, ".menu.stats", true},
        {"Data Table", "2dTable", ARRAY2DTABLE_COMMAND, ".menu.data2Dtable", false},
        {"Histogram Plot", "histplot", ARRAYHISTPLOT_COMMAND, ".menu.hist", false},
        {"Line Plot", "lineplot", ARRAYLINEPLOT_COMMAND, "menu.line", false},
        {"Surface Plot", "3dplot", ARRAYSURFPLOT_COMMAND, "menu.surf", false},
    };
    int index = 0;
    for (const MenuEntry& entry : entries) {
        auto* action = new QAction(this);
        action->setIcon(displayIcon(entry.icon));
        action->setText(QString::fromLatin1(entry.text));
        // Not checkable, so this has no visible effect; kept for the day the
        // menu shows its choice.
        action->setChecked(entry.checked);
        const QString command = QString::fromLatin1(entry.command);
        commands->registerCommand(command);
        NQ::ICommandHandler* handler = nullptr;
        switch (index) {
        case 0:
            handler = new ArrayLensStatCommandHandler(view);
            break;
        case 1:
            handler = new ArrayLens2DTableCommandHandler(view);
            break;
        case 2:
            handler = new ArrayLensHistPlotCommandHandler(view);
            break;
        case 3:
            handler = new ArrayLensLinePlotCommandHandler(view);
            break;
        default:
            handler = new ArrayLensSurfacePlotCommandHandler(view);
            break;
        }
        menu->add(commands->createActionContribution(
            action, command, location + QString::fromLatin1(entry.suffix), true, false));
        commands->setCommandHandler(command, handler);
        // Statistics is the display from the start.
        if (index == 0)
            view->showStats();
        ++index;
    }
    items << menu->getContributionItem();
    // 8
    items << separator(3);

    // 9: settings.
    const QString theme = core->themeManager()->getThemeName();
    QIcon settingsIcon;
    settingsIcon.addPixmap(
        QPixmap(QStringLiteral(":/nqcore/themes/%1/Settings_16x16-hover.png").arg(theme)),
        QIcon::Active, QIcon::Off);
    settingsIcon.addPixmap(
        QPixmap(QStringLiteral(":/nqcore/themes/%1/Settings_16x16.png").arg(theme)), QIcon::Normal,
        QIcon::Off);
    auto* configAction = new QAction(
        settingsIcon, QStringLiteral("Configure array type, slice and stride settings."), this);
    configAction->setCheckable(false);
    configAction->setEnabled(true);
    commands->registerCommand(QString::fromLatin1(ARRAYLENS_CONFIG_COMMAND));
    commands->addCommandHandler(QString::fromLatin1(ARRAYLENS_CONFIG_COMMAND),
                                new ArrayLensConfigCommandHandler(view));
    items << commands->createActionContribution(
        configAction, QString::fromLatin1(ARRAYLENS_CONFIG_COMMAND),
        QStringLiteral("Modify array configuration settings"), true, false);
    // 10
    items << separator(4);

    // 11: the filter switch; its command and handler belong to the view.
    QIcon filterIcon;
    filterIcon.addPixmap(QPixmap(QStringLiteral(":/halvane/icons/Filter_15px-Orange.png")),
                         QIcon::Normal, QIcon::On);
    filterIcon.addPixmap(QPixmap(QStringLiteral(":/halvane/icons/Filter_15px-DarkGray.png")),
                         QIcon::Normal, QIcon::Off);
    const QPixmap filterGray(QStringLiteral(":/halvane/icons/Filter_15px-Gray.png"));
    filterIcon.addPixmap(filterGray, QIcon::Disabled, QIcon::On);
    filterIcon.addPixmap(filterGray, QIcon::Disabled, QIcon::Off);
    filterAction =
        new QAction(filterIcon, QStringLiteral("Enable/disable filtering for this array."), this);
    filterAction->setCheckable(true);
    filterAction->setChecked(false);
    items << commands->createActionContribution(
        filterAction, QString::fromLatin1(ARRAYLENS_FILTER_COMMAND),
        QStringLiteral("Enable/Disable array filtering"), true, false);
    // 12
    items << separator(5);

    // The host's Update command, aimed at this view.
    commands->addCommandHandler(QString::fromLatin1(UPDATE_VIEW_COMMAND) + QLatin1Char('.') +
                                    view->name(),
                                new ArrayLensUpdateCommandHandler(view));
    return items;
}
