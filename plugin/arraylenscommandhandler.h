#pragma once
// The plug-in's answers to host commands. Each handler only passes the
// command to the view; none of them is deleted by the plug-in, the host keeps
// them.

#include "host/nqcore.h"

#include <QObject>

class ArrayLensView;

// Adds the first expression of a popup's selection and raises the view.
class ArrayLensCommandHandler : public QObject, public NQ::ICommandHandler {
    Q_OBJECT
public:
    explicit ArrayLensCommandHandler(ArrayLensView* view);
    void execute(QSharedPointer<NQ::ICmdExecutionEvent> event) override;
    bool hasContext() const override { return true; }
    QStringList getContext() const override;

    ArrayLensView* view;
};

// The toolbar's filter switch: a checked button applies the filter.
class ArrayLensFilterCommandHandler : public NQ::ICommandHandler {
public:
    explicit ArrayLensFilterCommandHandler(ArrayLensView* view) : view(view) {}
    void execute(QSharedPointer<NQ::ICmdExecutionEvent> event) override;
    bool hasContext() const override { return true; }
    QStringList getContext() const override;

    ArrayLensView* view;
};

// The host's Update command aimed at this view.
class ArrayLensUpdateCommandHandler : public NQ::ICommandHandler {
public:
    explicit ArrayLensUpdateCommandHandler(ArrayLensView* view) : view(view) {}
    void execute(QSharedPointer<NQ::ICmdExecutionEvent> event) override;
    bool hasContext() const override { return true; }
    QStringList getContext() const override;

    ArrayLensView* view;
};

// Opens the configuration dialog. It claims a context and names none; the
// host then makes it available without conditions.
class ArrayLensConfigCommandHandler : public NQ::ICommandHandler {
public:
    explicit ArrayLensConfigCommandHandler(ArrayLensView* view) : view(view) {}
    void execute(QSharedPointer<NQ::ICmdExecutionEvent> event) override;
    bool hasContext() const override { return true; }

    ArrayLensView* view;
};

// The five entries of the display menu share one shape: switch the display,
// then show its short label on the toolbar's drop-down.
class ArrayLensDisplayCommandHandler : public NQ::ICommandHandler {
public:
    ArrayLensView* view;

protected:
    using Show = void (ArrayLensView::*)();
    ArrayLensDisplayCommandHandler(ArrayLensView* view, Show show, const char* label)
        : view(view), show_(show), label_(label) {}
    void execute(QSharedPointer<NQ::ICmdExecutionEvent> event) override;

private:
    Show show_;
    const char* label_;
};

class ArrayLensStatCommandHandler : public ArrayLensDisplayCommandHandler {
public:
    explicit ArrayLensStatCommandHandler(ArrayLensView* view);
};

class ArrayLens2DTableCommandHandler : public ArrayLensDisplayCommandHandler {
public:
    explicit ArrayLens2DTableCommandHandler(ArrayLensView* view);
};

class ArrayLensLinePlotCommandHandler : public ArrayLensDisplayCommandHandler {
public:
    explicit ArrayLensLinePlotCommandHandler(ArrayLensView* view);
};

class ArrayLensHistPlotCommandHandler : public ArrayLensDisplayCommandHandler {
public:
    explicit ArrayLensHistPlotCommandHandler(ArrayLensView* view);
};

class ArrayLensSurfacePlotCommandHandler : public ArrayLensDisplayCommandHandler {
public:
    explicit ArrayLensSurfacePlotCommandHandler(ArrayLensView* view);
};

// The combo box's command: the combo box does its work through its own
// signals, so the command itself does nothing.
class ArrayLensSliceCommandHandler : public NQ::ICommandHandler {
public:
    explicit ArrayLensSliceCommandHandler(ArrayLensView* view) : view(view) {}
    void execute(QSharedPointer<NQ::ICmdExecutionEvent>) override {}

    ArrayLensView* view;
};

// Kept for a viewer command that no toolbar item uses; nothing creates it.
class ArrayLensViewerCommandHandler : public NQ::ICommandHandler {
public:
    explicit ArrayLensViewerCommandHandler(ArrayLensView* view) : view(view) {}
    void execute(QSharedPointer<NQ::ICmdExecutionEvent>) override {}

    ArrayLensView* view;
};
