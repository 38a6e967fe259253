#pragma once
/// One process-wide listener told of every timer queue as it is destroyed. The timer
/// handles, which sit above the queues, use it to free what they parked for that queue;
/// the queues need not know them.

class ICmTimerQueue;

typedef void (*CmTimerQueueGoneFn)(ICmTimerQueue* aQueue);

/// Installs the listener (null: none). Set before the first object it must hear of exists.
void cm_set_timer_queue_gone_listener(CmTimerQueueGoneFn aListener);

/// Tells the listener, if any, that aQueue is being destroyed.
void cm_notify_timer_queue_gone(ICmTimerQueue* aQueue);
