// The module's frame towards the server: magic block and load hooks.
// The module registers nothing: no hooks, settings or background work.
#include "quenloPgUtils.h"

extern "C" {
PG_MODULE_MAGIC;

PGDLLEXPORT void _PG_init(void);
PGDLLEXPORT void _PG_fini(void);

void _PG_init(void) {}
void _PG_fini(void) {}
}
