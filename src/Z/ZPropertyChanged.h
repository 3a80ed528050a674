// ZPropertyChanged: the notice that the observers of a store receive after a change.
//
// Subsystem: properties.  Stands on: ZObserver, ZLCString.
//
// Ownership: the names are copied. The notice exists only while the observers run; an observer that
// needs it later must copy it.
// Threads: immutable.
#pragma once

#include "ZLCString.h"
#include "ZObserver.h"

/// Describes one change of a configuration store: its type, and the names of category and key.
class ZPropertyChanged_6_0 : public ZObservedParm_6_0 {
public:
    /// The source of a change.
    enum PropertyStyle : int {
        storeChanged = 0,  // an operation of the store
    };

    /// The type of a change.
    enum PropertyChangeType : int {
        added = 0,    // a category was added; the key is empty
        removed = 1,  // a key was removed, or, with an empty key, a category
        set = 2,      // a value was set
    };

    /// Creates a notice.
    /// range   a null name is the empty name.
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
