// The module's frame towards the server: magic block and load hooks.
// The module registers nothing: no hooks, settings or background work. The magic
// block is that of the server major it is built against; _PG_fini stays an empty
// export (servers from 15 on never unload a module and no longer call it).
#include "quenloPgUtils.h"

extern "C" {
QN_MODULE_MAGIC;

PGDLLEXPORT void _PG_init(void);
PGDLLEXPORT void _PG_fini(void);

void _PG_init(void) {}
void _PG_fini(void) {}
}
