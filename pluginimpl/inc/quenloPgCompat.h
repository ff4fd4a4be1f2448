// What differs between the server majors the module builds against (13 to 18).
// Included by quenloPgUtils.h right after postgres.h, inside extern "C"; every
// other source uses the names defined here and needs no version test of its own.
#pragma once

#ifndef POSTGRES_H
static_assert(false, "quenloPgCompat.h follows postgres.h");
#endif

#include "fmgr.h"

#if PG_VERSION_NUM < 130000
#error "kelvarn_range_operators needs PostgreSQL 13 or later"
#endif

// 13 to 15 leave PGDLLEXPORT empty (16 and later make it default-visible
// themselves); the module is built with hidden visibility, so its entry points
// are exported through this definition on every major.
#undef PGDLLEXPORT
#define PGDLLEXPORT __attribute__((visibility("default")))

// The module's magic block, which a server refuses unless its major and ABI
// settings are those the module was built against. From 18 on the block also
// carries the extension's name and version, as the build defines them (shown by
// pg_get_loaded_modules()).
#if PG_VERSION_NUM >= 180000
#define QN_MODULE_MAGIC PG_MODULE_MAGIC_EXT(.name = QN_EXTENSION_NAME, .version = QN_EXTENSION_VERSION)
#else
#define QN_MODULE_MAGIC PG_MODULE_MAGIC
#endif

// Multiranges (int4multirange) exist from 14 on; the planner's pseudo-constant
// test takes the planner's state from 14 on.
#if PG_VERSION_NUM >= 140000
#define QN_HAVE_MULTIRANGES 1
#define QN_IS_PSEUDO_CONSTANT_FOR_INDEX(root, expr, index) is_pseudo_constant_for_index(root, expr, index)
#else
#define QN_IS_PSEUDO_CONSTANT_FOR_INDEX(root, expr, index) ((void)(root), is_pseudo_constant_for_index(expr, index))
#endif

// range_serialize takes an escontext for soft errors from 16 on; the module
// passes none, so errors are raised.
#if PG_VERSION_NUM >= 160000
#define QN_RANGE_SERIALIZE(typcache, lower, upper, empty) range_serialize(typcache, lower, upper, empty, nullptr)
#else
#define QN_RANGE_SERIALIZE(typcache, lower, upper, empty) range_serialize(typcache, lower, upper, empty)
#endif

// The on-disk TOAST pointer is varatt_external up to 18 and varatt_external_oid
// after it.
#if PG_VERSION_NUM >= 190000
typedef varatt_external_oid varatt_external;
#endif
