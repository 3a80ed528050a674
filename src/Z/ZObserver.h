// ZObserver: objects announce changes to the observers registered with them.
//
// Subsystem: threads.  Stands on: ZObject, ZArrayList, ZLock.
//
// Ownership: an observable borrows its observers; they must outlive their registration. A sender
// keeps the parameter of a notification and destroys it afterwards; an observer that wants to keep
// it clones it.
// Threads: the five operations of an observable are safe from any thread. Observers run on the
// notifying thread, with the list locked: they may use the same observable, other threads wait.
#pragma once

#include <stdint.h>

#include "ZArrayList.h"
#include "ZLock.h"
#include "ZObject.h"

class ZObservedParm_6_0;
class ZObserverInterface_6_0;

/// What can be observed.
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

    /// Tells every registered observer.
    virtual void notifyObservers(ZObservedParm_6_0 const& parm) = 0;

protected:
    ~ZObservableInterface_6_0() = default;
};

/// Who observes; implemented by the library's users.
class ZObserverInterface_6_0 {
public:
    /// Is told of a change of `sender`.
    /// owns    `parm` is borrowed until the call returns.
    virtual void update(ZObservableInterface_6_0* sender, ZObservedParm_6_0 const& parm) = 0;

protected:
    ~ZObserverInterface_6_0() = default;
};

/// The common base of what notifications carry.
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

    /// Orders by the observers' addresses: -1, 0 or 1.
    /// range   an object of another class sorts by its own address, as objects do.
    int compare(ZObject_6_0 const& other) const override;

    /// Returns a new wrapper of the same observer.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;

    ZObserverInterface_6_0* observer() const { return observer_; }  // the wrapped observer

private:
    ZObserverInterface_6_0* observer_;
};

/// Keeps a list of observers; the base of what can be observed.
class ZAbstractObservable_6_0 : public ZObservableInterface_6_0 {
public:
    /// Makes an observable without observers.
    /// throws  ZOutOfMemoryException_6_0; what making a lock throws.
    ZAbstractObservable_6_0();
    ZAbstractObservable_6_0(ZAbstractObservable_6_0 const&) = delete;
    ZAbstractObservable_6_0& operator=(ZAbstractObservable_6_0 const&) = delete;

    // Virtual functions in slot order. The order is binary interface: append only.

    /// Registers `observer`; one that is registered already stays so, once.
    /// range   null is ignored.
    /// owns    borrowed until it is unregistered.
    /// throws  ZOutOfMemoryException_6_0; the list is as it was then.
    /// cost    O(n).
    void addObserver(ZObserverInterface_6_0* observer) override;

    /// Unregisters `observer`; one that is not registered is ignored.
    /// cost    O(n).
    void deleteObserver(ZObserverInterface_6_0* observer) override;

    /// Unregisters all observers.
    void deleteObservers() override;

    /// Returns the number of registered observers.
    unsigned int countObservers() override;

    /// Calls `update(this, parm)` on every registered observer, in the order of registration.
    /// throws  what an observer throws: the later ones are not called then.
    /// threads the list stays locked until the last observer has returned.
    /// kept    the number of observers is read once, before the first call: one that is added
    ///         meanwhile is not called, and when one is removed its successor's turn may be lost.
    void notifyObservers(ZObservedParm_6_0 const& parm) override;

protected:
    ~ZAbstractObservable_6_0() = default;

private:
    ZArrayList_6_0 observers_;  // of Voyeur_6_0; guarded by lock_
    ZLock_6_0 lock_;
};

/// Announces that the sequence number shared by several locks has changed.
class ZSequenceUpdate_6_0 : public ZObservedParm_6_0 {
public:
    /// Makes an announcement in which both numbers are the invalid sequence, 0xFFFFFFFF.
    ZSequenceUpdate_6_0();

    /// Makes an announcement of the new number and the one seen before.
    /// range   the numbers are kept as 32 bits.
    ZSequenceUpdate_6_0(unsigned long sequence, unsigned long lastSequence);

    // Virtual functions in slot order. The order is binary interface: append only.
    ~ZSequenceUpdate_6_0() override;

    /// Returns the difference of the sequences or, when they are the same, of the last sequences.
    /// units   32 bits, wrapping around.
    /// range   an object of another class sorts by its address, as objects do.
    int compare(ZObject_6_0 const& other) const override;

    /// Returns a new announcement of the same numbers.
    /// owns    owned by the caller; released with delete.
    /// throws  ZOutOfMemoryException_6_0.
    ZObject_6_0* clone() const override;

    virtual unsigned long getSequence() const;      // the new shared number
    virtual unsigned long getLastSequence() const;  // the number this lock had seen before

    /// Returns whether `compare` gives 0.
    bool operator==(ZSequenceUpdate_6_0 const& other) const { return compare(other) == 0; }

private:
    uint32_t sequence_;
    uint32_t lastSequence_;
};
