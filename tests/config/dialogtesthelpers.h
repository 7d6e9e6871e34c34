#pragma once
// Shared set-up of the configuration dialog tests: a fake host, the view
// with its controller and dialog, the toolbar made, and helpers that drive
// the window the way a person does (clicks, typing, keys on combo boxes).

#include "config/arrayLensConfigui.h"
#include "config/dimensioncombobox.h"
#include "config/dimslicespinbox.h"
#include "config/slicetablewidget.h"
#include "controller/arraylensui.h"
#include "host/hostids.h"
#include "plugin/arraylensconstants.h"
#include "plugin/arraylenstoolbarcontributionfactory.h"
#include "plugin/arraylensview.h"
#include "tests/support/fakehost.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTableWidget>
#include <QTest>
#include <QTextEdit>
#include <gtest/gtest.h>

#include <ostream>

// Readable values in failure messages.
inline void PrintTo(const QString& text, std::ostream* os) {
    *os << '"' << qPrintable(text) << '"';
}
inline void PrintTo(const QStringList& list, std::ostream* os) {
    *os << '{' << qPrintable(list.join(QStringLiteral("|"))) << '}';
}
inline void PrintTo(const QRect& r, std::ostream* os) {
    *os << r.x() << ',' << r.y() << ' ' << r.width() << 'x' << r.height();
}
inline void PrintTo(const QSize& s, std::ostream* os) {
    *os << s.width() << 'x' << s.height();
}

namespace dialogtest {

inline const QString OVERLAY = QString::fromLatin1(NQ::Ids::SHOW_MESSAGE_OVERLAY_COMMAND);

class DialogTest : public ::testing::Test {
protected:
    void SetUp() override {
        view = new ArrayLensView();
        ui = view->ui;
        dlg = view->configDialog;
        ASSERT_NE(dlg, nullptr);
        // The toolbar's items (and its filter action) exist once the host
        // asked the factory for them.
        if (NQ::IContributionFactory* factory = core.commands.factoryAt(
                QString::fromLatin1(HVUI::Constants::ARRAYLENS_TOOLBAR_LOCATION)))
            factory->createItems();
        // The debugger is connected, as the host tells through its context.
        core.contexts.activateContext(QString::fromLatin1(NQ::Ids::CONTEXT_DEBUGGER_CONNECTED));
        core.contexts.activateContext(QString::fromLatin1(NQ::Ids::CONTEXT_DEBUGGER_READY));
    }

    void TearDown() override {
        if (dlg && dlg->dialog->isVisible())
            dlg->dialog->done(0);
        delete view;
        for (fake::Expression* e : owned)
            delete e;
    }

    // An expression of the debuggee, not yet known to the controller.
    fake::Expression* makeExpression(const QString& text, const QString& type,
                                     const QString& language) {
        auto* e = new fake::Expression(text, &core.debugger());
        e->type = type;
        e->language = language;
        e->fortran = language.startsWith(QLatin1String("f"), Qt::CaseInsensitive);
        e->cLanguage = !e->fortran;
        owned.append(e);
        return e;
    }

    // Makes `e` the controller's current expression with the state that its
    // first answers leave behind: declared type, bounds and table settings.
    void makeCurrent(fake::Expression* e, const QStringList& bounds, Config2DTable* config,
                     int displayMode) {
        ui->currentExpression = e;
        ui->typeMap[e] = e->type;
        ui->origBoundsMap[e] = bounds;
        ui->currentBounds = bounds;
        ui->currentConfig = config;
        ui->configMap[e] = config;
        ui->displayMode = displayMode;
    }

    // The settings action of the toolbar: the host runs the config command.
    void openBySettingsAction() {
        core.commands.trigger(QString::fromLatin1(HVUI::Constants::ARRAYLENS_CONFIG_COMMAND),
                              QSharedPointer<NQ::ICmdExecutionEvent>(new fake::CmdEvent));
    }

    template <class T> T* find(const char* name) const {
        return dlg->dialog->findChild<T*>(QString::fromLatin1(name));
    }

    QPushButton* button(const char* name) const { return find<QPushButton>(name); }

    void click(const char* name) {
        QPushButton* b = button(name);
        ASSERT_NE(b, nullptr) << name;
        QTest::mouseClick(b, Qt::LeftButton);
    }

    // Replaces the text of a line edit by typing.
    static void typeInto(QLineEdit* edit, const QString& text) {
        edit->setFocus();
        QTest::keyClick(edit, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(edit, Qt::Key_Delete);
        QTest::keyClicks(edit, text);
    }

    // Chooses an item of a combo box with the arrow keys.
    static void choose(QComboBox* combo, int index) {
        int guard = 64;
        while (combo->currentIndex() < index && guard-- > 0)
            QTest::keyClick(combo, Qt::Key_Down);
        while (combo->currentIndex() > index && guard-- > 0)
            QTest::keyClick(combo, Qt::Key_Up);
    }

    QComboBox* rowComboBox() const { return find<QComboBox>("rowDimComboBox"); }
    QComboBox* colComboBox() const { return find<QComboBox>("colDimComboBox"); }
    QTableWidget* table() const { return find<QTableWidget>("slice2DTable"); }

    // Opens the cell's editor by a double click, selects and deletes what
    // stands there, types the text and presses Return.
    void typeIntoCell(int row, int column, const QString& text) {
        QTableWidget* t = table();
        QTableWidgetItem* item = t->item(row, column);
        ASSERT_NE(item, nullptr);
        const QPoint at = t->visualItemRect(item).center();
        QTest::mouseClick(t->viewport(), Qt::LeftButton, {}, at);
        QTest::mouseDClick(t->viewport(), Qt::LeftButton, {}, at);
        QLineEdit* editor = nullptr;
        for (QLineEdit* e : t->viewport()->findChildren<QLineEdit*>())
            if (e->isVisible())
                editor = e;
        ASSERT_NE(editor, nullptr) << "no editor at " << row << "," << column;
        QTest::keyClick(editor, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClick(editor, Qt::Key_Delete);
        QTest::keyClicks(editor, text);
        QTest::keyClick(editor, Qt::Key_Return);
        // The delegate commits the text and closes its editor through a
        // queued call, which a live event loop runs at once; run it here
        // too, and delete the closed editor.
        QCoreApplication::sendPostedEvents();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }

    QString cell(int row, int column) const {
        QTableWidgetItem* item = table()->item(row, column);
        return item ? item->text() : QString();
    }

    // The spin box of a dimension, by its object name such as "[i]SpinBox".
    QSpinBox* spin(const QString& name) const { return dlg->dialog->findChild<QSpinBox*>(name); }

    // Types a new value into a spin box and leaves it with Tab. Return would
    // press the window's default button, OK, as in any dialog.
    static void typeIntoSpin(QSpinBox* box, int value) {
        box->setFocus();
        QTest::keyClick(box, Qt::Key_A, Qt::ControlModifier);
        QTest::keyClicks(box, QString::number(value));
        QTest::keyClick(box, Qt::Key_Tab);
    }

    fake::Command* overlay() { return core.commands.command(OVERLAY); }

    QString shownMessage() const { return ui->messageLabel ? ui->messageLabel->text() : QString(); }

    fake::Core core;
    ArrayLensView* view = nullptr;
    ArrayLensUI* ui = nullptr;
    ArrayLensConfigDialog* dlg = nullptr;
    QList<fake::Expression*> owned;
};

} // namespace dialogtest
