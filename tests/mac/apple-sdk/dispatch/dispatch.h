#pragma once

// <dispatch/dispatch.h>: one-time initialisation and work for the main queue.

extern "C" {

typedef long dispatch_once_t;

void dispatch_once(dispatch_once_t* predicate, void (^block)(void));

typedef struct dispatch_queue_s* dispatch_queue_t;

dispatch_queue_t dispatch_get_main_queue(void);
void dispatch_async(dispatch_queue_t queue, void (^block)(void));

}
