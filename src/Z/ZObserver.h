// ZObserver: observable objects, which notify registered observers of changes.
//
// Subsystem: threads.  Stands on: ZObject, ZArrayList, ZLock.
//
// Ownership: an observable borrows its observers; they must outlive their registration. The sender
// owns the parameter of a notification and destroys it afterwards; an observer that needs it
// longer clones it.
// Threads: the five operations of an observable are safe from any thread. Observers run on the
// notifying thread, with the list locked: they may use the same observable; other threads wait.
#pragma once

#include <stdint.h>

#include "ZArrayList.h"
#include "ZLock.h"
#include "ZObject.h"

class ZObservedParm_6_0;
class ZObserverInterface_6_0;

/// The interface of observable objects.
class ZObservableInterface_6_0 {
public:
    // Virtual functions in slot order. The order is binary interface: append only.

    /// Registers `observer`.
    virtual void addObserver(ZObserverInterface_6_0* observer) = 0;

    /// Unregisters `observer`.
    virtual void deleteObserver(ZObserverInterface_6_0* observer) = 0;

    /// Unregisters all observers.
    virtual void deleteObservers() = 0;

    /// Returns the number of registered observers.
    virtual unsigned int countObservers() = 0;

    /// Notifies every registered observer.
    virtual void notifyObservers(ZObservedParm_6_0 const& parm) = 0;

protected:
    ~ZObservableInterface_6_0() = default;
};

/// The interface of observers. Users of the library implement it.
class ZObserverInterface_6_0 {
public:
    /// Called after a change of `sender`.
    /// owns    `parm` is borrowed until the call returns.
    virtual void update(ZObservableInterface_6_0* sender, ZObservedParm_6_0 const& parm) = 0;

protected:
    ~ZObserverInterface_6_0() = default;
};

/// The base of the parameters of notifications.
class ZObservedParm_6_0 : public ZObject_6_0 {
public:
    ~ZObservedParm_6_0() override;
};

/// A list element that wraps one registered observer.
class Voyeur_6_0 : public ZObject_6_0 {
public:
    /// Wraps `observer`.
    /// owns    `observer` stays borrowed.
    explicit Voyeur_6_0(ZObserverInterface_6_0* observer);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~Voyeur_6_0() override;

    /// Returns the observer's address, folded to 32 bits.
    uint32_t hash() const override;

    /// Returns -1, 0 or 1 by the observers' addresses.
    /// range   with an object of another class, compares the addresses of the objects.
    int compare(ZObject_6_0 const& other) const override;

    /// Returns a new wrapper of the same observer.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;

    ZObserverInterface_6_0* observer() const { return observer_; }  // the wrapped observer

private:
    ZObserverInterface_6_0* observer_;
};

/// The base of observable objects, with a list of observers.
class ZAbstractObservable_6_0 : public ZObservableInterface_6_0 {
public:
    /// Makes an observable without observers.
    /// throws  any exception of ZLock_6_0's constructor.
    ZAbstractObservable_6_0();
    ZAbstractObservable_6_0(ZAbstractObservable_6_0 const&) = delete;
    ZAbstractObservable_6_0& operator=(ZAbstractObservable_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Registers `observer`, unless it is registered already.
    /// range   null is ignored.
    /// owns    borrowed until it is unregistered.
    /// throws  ZOutOfMemoryException_6_0; the list is unchanged then.
    /// cost    O(n).
    void addObserver(ZObserverInterface_6_0* observer) override;

    /// Unregisters `observer`, if it is registered.
    /// cost    O(n).
    void deleteObserver(ZObserverInterface_6_0* observer) override;

    /// Unregisters all observers.
    void deleteObservers() override;

    /// Returns the number of registered observers.
    unsigned int countObservers() override;

    /// Calls `update(this, parm)` on every registered observer, in the order of registration.
    /// throws  any exception of an observer; later observers are not called then.
    /// threads the list stays locked until the last observer has returned.
    /// kept    the number of observers is read once, before the first call: an observer added
    ///         during the pass is not called, and removing one may skip the next.
    void notifyObservers(ZObservedParm_6_0 const& parm) override;

protected:
    ~ZAbstractObservable_6_0() = default;

private:
    ZArrayList_6_0 observers_;  // of Voyeur_6_0; guarded by lock_
    ZLock_6_0 lock_;
};

/// Notification of a change of the sequence number that several locks share.
class ZSequenceUpdate_6_0 : public ZObservedParm_6_0 {
public:
    /// Makes a notification in which both numbers are the invalid sequence, 0xFFFFFFFF.
    ZSequenceUpdate_6_0();

    /// Makes a notification with the new number and the previous one.
    /// range   stores the low 32 bits of each number.
    ZSequenceUpdate_6_0(unsigned long sequence, unsigned long lastSequence);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZSequenceUpdate_6_0() override;

    /// Returns the difference of the sequences or, if they are equal, of the last sequences.
    /// units   32 bits, wrapping around.
    /// range   with an object of another class, compares addresses.
    int compare(ZObject_6_0 const& other) const override;

    /// Returns a new notification with the same numbers.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;

    virtual unsigned long getSequence() const;      // the new shared number
    virtual unsigned long getLastSequence() const;  // the number this lock had seen before

    /// Returns whether compare() returns 0.
    bool operator==(ZSequenceUpdate_6_0 const& other) const { return compare(other) == 0; }

private:
    uint32_t sequence_;
    uint32_t lastSequence_;
};
