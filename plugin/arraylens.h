#pragma once
// The object the host's plug-in framework creates: it hangs the view, its
// command and the two popup entries on the host in one init() call.

#include "host/nqcore.h"

class ArrayLensView;

// The plug-in's own interface; it has no operations and serves as the name
// and id under which the host finds the plug-in object.
class IArrayLens {};
Q_DECLARE_INTERFACE(IArrayLens, "com.northquay.iarraylens")

class ArrayLens : public NQ::IPlugin, public IArrayLens {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "com.northquay.ArrayLens" FILE "arraylens.json")
    Q_INTERFACES(IArrayLens)
public:
    ArrayLens();
    // The view belongs to the host's view manager from init() on.
    ~ArrayLens() override;

    bool init(QString* errorString, const QStringList& arguments) override;
    bool configure() override;
    void shuttingDown() override;

    ArrayLensView* view = nullptr;
};
