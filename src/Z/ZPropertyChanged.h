// ZPropertyChanged: what the observers of a store are told when something in it changed.
//
// Subsystem: properties.  Stands on: ZObserver, ZLCString.
//
// Ownership: the names are copied. The notice lives only while observers run; an observer that
// wants to keep it copies it.
// Threads: unchanging once made.
#pragma once

#include "ZLCString.h"
#include "ZObserver.h"

class ZPropertyChanged_6_0 : public ZObservedParm_6_0 {
public:
    // Where a change comes from.
    enum PropertyStyle : int {
        storeChanged = 0,  // an operation of the store
    };

    // What happened.
    enum PropertyChangeType : int {
        added = 0,    // a category was added; the key is empty
        removed = 1,  // a key was removed, or, with an empty key, a category
        set = 2,      // a value was set
    };

    /// Makes a notice; a null name is taken as empty.
    ZPropertyChanged_6_0(PropertyStyle style, PropertyChangeType type, char const* category,
                         char const* key);

    ~ZPropertyChanged_6_0() override;

    PropertyStyle style() const { return style_; }
    PropertyChangeType type() const { return type_; }
    ZLCString_6_0 const& category() const { return category_; }
    ZLCString_6_0 const& key() const { return key_; }

private:
    PropertyStyle style_;
    PropertyChangeType type_;
    ZLCString_6_0 category_;
    ZLCString_6_0 key_;
};
