/* How records get from callers to loggers: the ring (logging/LogRing.h), the drain (logging/LogCore.h) and the watch that
 * callers wake when it sleeps (logging/Doorbell.h). Spin tries every order of the steps below; run.sh starts it.
 *
 * Steps that another thread could come between are statements of their own. A processor keeps a caller's publication to
 * itself for a while: it stands in `pending` until the process Memory brings it to the slot, which any locked instruction of
 * the same caller waits for.
 *
 * Checked: a slot is never filled by two callers nor read while it is filled; records are delivered once each and in the order
 * of their tickets; and when nobody can go on any more, every record has been delivered and every caller has returned.
 *
 * With one of the names below defined a guard is missing, and run.sh expects an error:
 *   NO_FENCE         the watch falls asleep without a fence for the callers
 *   NO_SECOND_LOOK   the watch falls asleep without looking once more
 *   NO_WAKING        callers do not look whether the watch sleeps
 *   NO_FREE_SLOT     callers fill their slot without waiting for it
 *   EARLY_NOTICE     a record is published before it is filled
 *   MANY_DRAINS      the drain is not exclusive
 */
#ifndef CALLERS
#define CALLERS 2
#endif
#ifndef RECORDS
#define RECORDS 2
#endif
#ifndef CAPACITY
#define CAPACITY 2
#endif

byte tail = 0;
byte head = 0;
byte end = CAPACITY;         /* slots below this ticket were free at the last look of a caller */
byte sequence[CAPACITY];
byte content[CAPACITY];
byte filling[CAPACITY];
bool isDraining = false;
bool isAsleep = true;        /* until the watch looks for work for the first time */
byte calls = 0;
byte pending[CALLERS];
byte delivered = 0;
byte returned = 0;

#define hasRecord (sequence[head % CAPACITY] == head + 1)

active [CALLERS] proctype Memory() {
end_memory:
  do
  :: atomic { pending[_pid] > 0 ->
       sequence[(pending[_pid] - 1) % CAPACITY] = pending[_pid];
       pending[_pid] = 0 }
  od
}

inline drain() {
#ifdef MANY_DRAINS
  isDraining = true;
#else
  atomic { !isDraining -> isDraining = true }
#endif
  do
  :: atomic { hasRecord ->
       assert(filling[head % CAPACITY] == 0);
       assert(content[head % CAPACITY] == head + 1);
       assert(delivered == head);
       delivered++ }
       head++
  :: else -> break
  od;
  isDraining = false
}

/* Doorbell: reads, and only then takes the locked instruction. */
inline rouse() {
#ifndef NO_WAKING
  if
  :: isAsleep ->
       pending[me] == 0;
       if
       :: atomic { isAsleep -> isAsleep = false }; calls++
       :: else
       fi
  :: else
  fi
#else
  skip
#endif
}

/* Waits until `isDone`, by doing the work if nobody else does it. */
inline waitUntil(isDone) {
  do
  :: isDone -> break
  :: !(isDone) && pending[me] == 0 && hasRecord && !isDraining -> drain()
  od
}

inline lookForRoom(wanted) {
  do
  :: wanted < end -> break
  :: else ->
       seen = head + CAPACITY;
       atomic { end = seen; isFree = (wanted < seen); seen = 0 }
       if
       :: isFree -> break
       :: else -> rouse(); waitUntil(wanted < head + CAPACITY)
       fi
  od
}

active [CALLERS] proctype Caller() {
  byte me = _pid - CALLERS;
  byte number = 0;
  byte ticket;
  byte seen;
  bool isFree;
  bool isSynchronous;
  do
  :: number < RECORDS ->
       if
       :: isSynchronous = false
       :: isSynchronous = true
       fi;
       lookForRoom(tail);
       pending[me] == 0;
       atomic { ticket = tail; tail++ };
#ifndef NO_FREE_SLOT
       lookForRoom(ticket);
#endif
#ifdef EARLY_NOTICE
       pending[me] = ticket + 1;
#endif
       atomic { filling[ticket % CAPACITY]++; assert(filling[ticket % CAPACITY] == 1) }
       atomic { content[ticket % CAPACITY] = ticket + 1; filling[ticket % CAPACITY]-- }
#ifndef EARLY_NOTICE
       pending[me] = ticket + 1;
#endif
       rouse();
       if
       :: isSynchronous -> waitUntil(head > ticket)
       :: else
       fi;
       atomic { number++; ticket = 0; isFree = false; isSynchronous = false }
  :: else -> break
  od;
  returned++
}

/* The naps of the watch take time only; it may fall asleep whenever it finds nothing to do. */
active proctype Watch() {
  byte heard = 0;
  byte one;
end_unborn:
  calls != 0;
  do
  :: hasRecord && !isDraining -> drain()
  :: !hasRecord ->
       heard = calls;
       isAsleep = true;
#ifndef NO_FENCE
       do
       :: one < CALLERS -> atomic { pending[one] == 0; one++ }
       :: else -> one = 0; break
       od;
#endif
#ifndef NO_SECOND_LOOK
       if
       :: hasRecord ->
            if
            :: atomic { isAsleep -> isAsleep = false }
            :: else -> calls != heard
            fi
       :: else -> goto end_asleep
       fi
#else
       goto end_asleep
#endif
       skip;
       goto awake;
end_asleep:
       calls != heard;
awake:
       skip
  od
}

active proctype Judge() {
end_waiting:
  timeout;
  assert(delivered == CALLERS * RECORDS);
  assert(returned == CALLERS)
}
