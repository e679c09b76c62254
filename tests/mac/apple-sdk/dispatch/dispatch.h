#pragma once

// <dispatch/dispatch.h>: one-time initialisation.

extern "C" {

typedef void (^dispatch_block_t)(void);
typedef long dispatch_once_t;

void dispatch_once(dispatch_once_t* predicate, dispatch_block_t block);

}
