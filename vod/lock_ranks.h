// The lock order of the module, outermost first. docs/architecture.md says what each lock guards.
#pragma once

enum lock_rank {
    LOCK_RANK_LINK_TABLE = 10,
    LOCK_RANK_PLAYER = 20,
    LOCK_RANK_LIMITER = 30,
    LOCK_RANK_STORE_POOL = 40,
    LOCK_RANK_LEAF = 90, // slot tables, queues, lists, caches: nothing is taken inside them
};
