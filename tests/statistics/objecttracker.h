#pragma once
// Tells which QObjects were made while a tracker lived and which of them are
// still alive, through the hooks that QtCore offers to debugging tools. The
// displays make their request watchers with no parent, so this is the only
// way a test can see when a watcher is deleted.

#include <QObject>
#include <QSet>
#include <QtGlobal>

// QtCore's hook table (exported for tools; see qhooks_p.h): index 3 is called
// at the end of every QObject constructor, index 4 at the start of every
// QObject destructor.
extern quintptr qtHookData[];

namespace tracking {

class ObjectTracker {
public:
    ObjectTracker() {
        previousAdd_ = qtHookData[AddQObject];
        previousRemove_ = qtHookData[RemoveQObject];
        current_ = this;
        qtHookData[AddQObject] = reinterpret_cast<quintptr>(&added);
        qtHookData[RemoveQObject] = reinterpret_cast<quintptr>(&removed);
    }
    ~ObjectTracker() {
        qtHookData[AddQObject] = previousAdd_;
        qtHookData[RemoveQObject] = previousRemove_;
        current_ = nullptr;
    }
    ObjectTracker(const ObjectTracker&) = delete;
    ObjectTracker& operator=(const ObjectTracker&) = delete;

    bool isAlive(const QObject* object) const { return alive_.contains(object); }

    // The live objects made since the tracker began that are of type T.
    template <typename T> QList<T*> liveOf() const {
        QList<T*> found;
        for (const QObject* object : alive_)
            if (auto* t = dynamic_cast<T*>(const_cast<QObject*>(object)))
                found.append(t);
        return found;
    }

private:
    enum { AddQObject = 3, RemoveQObject = 4 };
    static void added(QObject* object) {
        if (current_)
            current_->alive_.insert(object);
    }
    static void removed(QObject* object) {
        if (current_)
            current_->alive_.remove(object);
    }

    static inline ObjectTracker* current_ = nullptr;
    QSet<const QObject*> alive_;
    quintptr previousAdd_ = 0;
    quintptr previousRemove_ = 0;
};

} // namespace tracking
