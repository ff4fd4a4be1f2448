# Locates PostgreSQL 13's pg_config and reads the values the build needs from it.
set(PG_CONFIG "/usr/lib/postgresql/13/bin/pg_config" CACHE FILEPATH "pg_config of the target PostgreSQL")
if(NOT EXISTS "${PG_CONFIG}")
  find_program(PG_CONFIG_FOUND NAMES pg_config)
  if(NOT PG_CONFIG_FOUND)
    message(FATAL_ERROR "pg_config not found: install postgresql-server-dev-13 (scripts/setup.sh) or pass -DPG_CONFIG=...")
  endif()
  set(PG_CONFIG "${PG_CONFIG_FOUND}" CACHE FILEPATH "" FORCE)
endif()

# pg_config_value(<variable> <pg_config option>): stores what pg_config prints for the option.
function(pg_config_value variable option)
  execute_process(COMMAND "${PG_CONFIG}" "${option}"
                  OUTPUT_VARIABLE value OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
  if(failed)
    message(FATAL_ERROR "${PG_CONFIG} ${option} failed")
  endif()
  set(${variable} "${value}" PARENT_SCOPE)
endfunction()

pg_config_value(PG_VERSION_STRING --version)
pg_config_value(PG_INCLUDEDIR_SERVER --includedir-server)
pg_config_value(PG_PKGLIBDIR --pkglibdir)
pg_config_value(PG_SHAREDIR --sharedir)
pg_config_value(PG_BINDIR --bindir)
pg_config_value(PG_PGXS --pgxs)

if(NOT PG_VERSION_STRING MATCHES "^PostgreSQL 13\\.")
  message(FATAL_ERROR "PostgreSQL 13 is required, ${PG_CONFIG} reports ${PG_VERSION_STRING}")
endif()
get_filename_component(PG_PGXS_DIR "${PG_PGXS}" DIRECTORY)
set(PG_REGRESS "${PG_PGXS_DIR}/../test/regress/pg_regress")
message(STATUS "Building against ${PG_VERSION_STRING} (${PG_CONFIG})")
