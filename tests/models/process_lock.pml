/* The read-write lock between processes (src/Z/ZProcessReadWriteFileLock.cpp), as a model for spin.
 *
 * Three processes of two threads, one lock object in each process, one lock file. A process has the
 * lock between its threads, the file mutex, its state and its two sequence numbers; the file has the
 * gate, the data range and the sequence number. Each thread takes the lock once, for reading or for
 * writing, and each process has an observer: with the second thread of a process its lock has a past.
 *
 * Checked: the lock excludes, between threads and between processes; whoever holds the lock has told
 * his observers of every change of others, once; while a writer waits for readers to leave, no
 * other process begins to read; nobody waits for ever.
 *
 * Steps that no other thread can tell apart are one: those of a process under its file mutex.
 *
 * FAULT puts a mistake in, to see that it is found:
 *   1  readers do not pass the gate
 *   2  the first reader that leaves takes the file lock with him
 *   3  a change counts as seen when the lock is taken, not when it is given back
 *   4  a writer gives the gate back as soon as he has it
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

/* The lock file: who holds the gate, who reads the data range, who writes it; its number. */
byte gate = NOBODY;
byte reading = 0; /* one bit a process */
byte writing = NOBODY;
byte number = 0;

/* One lock object a process. */
byte readers[PROCESSES];
byte holder[PROCESSES] = NOBODY;
bool fileMutex[PROCESSES];
byte state[PROCESSES];
byte sequence[PROCESSES];
byte lastSequence[PROCESSES] = UNSEEN;

/* What the checks need to know. */
byte insideReading = 0;
byte insideWriting = 0;
byte waitingWriter = NOBODY;   /* has asked for the data range and waits for readers to leave */
byte told[PROCESSES] = UNSEEN; /* the newest number that the process knows of */

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
            /* A reader gives the gate back at once. */
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
        :: lastSequence[p] == UNSEEN -> lastSequence[p] = sequence[p]; told[p] = sequence[p]
        :: else
        fi;
#if FAULT == 3
        lastSequence[p] = sequence[p];
#endif
        update = (s == WRITE);
        held = s;
        if
        :: lastSequence[p] == sequence[p] -> goIn()
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
                assert(told[p] != sequence[p]);
                told[p] = sequence[p]
            :: else
            fi;
            changed = false;
            goIn()
        }
    :: else
    fi
}

inline goIn() {
    if
    :: held == WRITE -> insideWriting++
    :: else -> insideReading++
    fi;
    assert(insideWriting == 0 || (insideWriting == 1 && insideReading == 0));
    assert(sequence[p] == number);
    assert(told[p] == number)
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
            told[p] = number
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

/* Processes are alike, and so are the threads of one: of the ways to hand out reading and writing
 * that differ only in who is who, one is looked at. */
init {
    byte p = 0;
    byte writers = 0; /* threads of the process that write, at least as many as of the one before */
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
