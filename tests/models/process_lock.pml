/* The read-write lock between processes (src/Z/ZProcessReadWriteFileLock.cpp), as a model for spin.
 *
 * Three processes of two threads, one lock object in each process, one lock file. A process has the
 * lock between its threads, the file mutex, its state and its two sequence numbers; the file has the
 * gate, the data range and the sequence number. Each thread acquires the lock once, for reading or
 * writing, and each process has an observer. The second thread of a process finds a lock object that
 * was held before.
 *
 * Checked: the lock excludes threads and processes. A thread that holds the lock has notified its
 * observers of every change by other processes, once. While a writer waits for readers to leave, no
 * other process starts to read. No thread waits forever.
 *
 * Steps that no other thread can distinguish are one step: those of a process under its file mutex.
 *
 * FAULT adds a mistake, to check that the search finds it:
 *   1  readers do not pass the gate
 *   2  the first leaving reader releases the file lock
 *   3  a change is marked as seen when the lock is acquired, not when it is released
 *   4  a writer releases the gate as soon as it has it
 */
#ifndef FAULT
#define FAULT 0
#endif

#define PROCESSES 3
#define THREADS   2
#define NOBODY    7
#define UNSEEN    7  /* the last sequence number of a lock that was never held */

#define UNSET 0
#define READ  1
#define WRITE 3

/* The lock file: holder of the gate, readers and writer of the data range, sequence number. */
byte gate = NOBODY;
byte reading = 0; /* one bit per process */
byte writing = NOBODY;
byte number = 0;

/* One lock object per process. */
byte readers[PROCESSES];
byte holder[PROCESSES] = NOBODY;
bool fileMutex[PROCESSES];
byte state[PROCESSES];
byte sequence[PROCESSES];
byte lastSequence[PROCESSES] = UNSEEN;

/* State for the checks. */
byte insideReading = 0;
byte insideWriting = 0;
byte waitingWriter = NOBODY;   /* waits for the data range until the readers leave */
byte notified[PROCESSES] = UNSEEN; /* the newest number that the process knows of */

/* ---- between the threads of a process ---- */

inline threadLock(s) {
    atomic {
        holder[p] == NOBODY && (s == READ || readers[p] == 0);
        if
        :: s == READ -> readers[p]++
        :: else -> holder[p] = t
        fi
    }
}

/* ---- the file ---- */

inline lockFile(s) {
    atomic {
#if FAULT == 1
        s == READ || gate == NOBODY;
#else
        gate == NOBODY;
#endif
        if
#if FAULT == 1
        :: s == READ
#endif
        :: else ->
            gate = p
        fi;
        if
        :: s == WRITE -> waitingWriter = p
        :: else
        fi
    };
#if FAULT == 4
    d_step {
        if
        :: s == WRITE -> gate = NOBODY
        :: else
        fi
    };
#endif
    atomic {
        writing == NOBODY && (s == READ || reading == 0);
        if
        :: s == READ -> assert(waitingWriter == NOBODY); reading = reading | (1 << p)
        :: else -> writing = p; waitingWriter = NOBODY
        fi
    }
}

/* ---- dolock() ---- */

inline acquire(s) {
    threadLock(s);
    atomic { !fileMutex[p]; fileMutex[p] = true };
    if
    :: state[p] == UNSET -> lockFile(s)
    :: else -> assert(s != WRITE)
    fi;
    d_step {
        if
        :: state[p] == UNSET ->
            /* A reader releases the gate immediately. */
            if
            :: s == READ && gate == p -> gate = NOBODY
            :: else
            fi;
            state[p] = s;
            sequence[p] = number
        :: else
        fi;
        fileMutex[p] = false
    }
}

inline release() {
    atomic {
        !fileMutex[p];
        fileMutex[p] = true;
        if
#if FAULT == 2
        :: true ->
#else
        :: state[p] == WRITE || readers[p] <= 1 ->
#endif
            reading = reading & ~(1 << p);
            if
            :: writing == p -> writing = NOBODY
            :: else
            fi;
            leaves = true
#if FAULT != 2
        :: else
#endif
        fi
    };
    d_step {
        if
        :: leaves ->
            if
            :: gate == p -> gate = NOBODY
            :: else
            fi;
            state[p] = UNSET;
            leaves = false
        :: else
        fi;
        if
        :: holder[p] == t -> holder[p] = NOBODY
        :: else -> assert(readers[p] > 0); readers[p]--
        fi;
        fileMutex[p] = false
    }
}

/* ---- lock() and unlock() ---- */

inline lock(s) {
    acquire(s);
    atomic {
        if
        :: lastSequence[p] == UNSEEN -> lastSequence[p] = sequence[p]; notified[p] = sequence[p]
        :: else
        fi;
#if FAULT == 3
        lastSequence[p] = sequence[p];
#endif
        update = (s == WRITE);
        held = s;
        if
        :: lastSequence[p] == sequence[p] -> enterInside()
        :: else -> changed = true
        fi
    };
    if
    :: changed ->
        if
        :: held == READ -> release(); acquire(WRITE); update = false; held = WRITE
        :: else
        fi;
        atomic {
            assert(holder[p] == t);
            if
            :: lastSequence[p] != sequence[p] ->
                assert(notified[p] != sequence[p]);
                notified[p] = sequence[p]
            :: else
            fi;
            changed = false;
            enterInside()
        }
    :: else
    fi
}

inline enterInside() {
    if
    :: held == WRITE -> insideWriting++
    :: else -> insideReading++
    fi;
    assert(insideWriting == 0 || (insideWriting == 1 && insideReading == 0));
    assert(sequence[p] == number);
    assert(notified[p] == number)
}

inline unlock() {
    d_step {
        if
        :: held == WRITE -> insideWriting--
        :: else -> insideReading--
        fi;
        if
        :: state[p] == WRITE && update ->
            number = sequence[p] + 1;
            sequence[p] = number;
            notified[p] = number
        :: else
        fi;
        lastSequence[p] = sequence[p];
        update = false;
        held = UNSET
    };
    release()
}

proctype thread(byte p; byte t; byte wanted) {
    byte held;
    bool update;
    bool changed;
    bool leaves;
    lock(wanted);
    unlock()
}

/* Processes are interchangeable, and so are the threads of a process: of all assignments of readers
 * and writers that differ only in order, the model checks one. */
init {
    byte p = 0;
    byte writers = 0; /* writing threads of the process; not fewer than in the previous process */
    atomic {
        do
        :: p < PROCESSES ->
            do
            :: writers < THREADS -> writers++
            :: break
            od;
            if
            :: writers > 0 -> run thread(p, 0, WRITE)
            :: else -> run thread(p, 0, READ)
            fi;
            if
            :: writers > 1 -> run thread(p, 1, WRITE)
            :: else -> run thread(p, 1, READ)
            fi;
            p++
        :: p == PROCESSES -> break
        od
    }
}
