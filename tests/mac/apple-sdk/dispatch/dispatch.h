#pragma once

// <dispatch/dispatch.h>: one-time initialisation and work for the main queue.

extern "C" {

typedef void (^dispatch_block_t)(void);
typedef long dispatch_once_t;

void dispatch_once(dispatch_once_t* predicate, dispatch_block_t block);

typedef struct dispatch_queue_s* dispatch_queue_t;
typedef dispatch_queue_t dispatch_queue_main_t;

dispatch_queue_main_t dispatch_get_main_queue(void);
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);

}
