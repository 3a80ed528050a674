// event: a descriptor that wakes a program.
#pragma once

namespace zfleet {

// An event descriptor, closed with the last reference.
class Event {
public:
    /// throws  CallError with "eventfd()".
    Event();
    Event(Event const&) = delete;
    Event& operator=(Event const&) = delete;
    ~Event();

    int descriptor() const { return fd_; }
    void signal() const;
    void clear() const;

private:
    int const fd_;
};

}  // namespace zfleet
