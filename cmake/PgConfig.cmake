# Locates the pg_config of the target PostgreSQL and reads the values the build
# needs from it. Any major from 13 to 18 is accepted; the module is built for
# that one major only (its magic block names it), so each major gets a build
# directory of its own.
#
#   -DPG_MAJOR=15                    uses /usr/lib/postgresql/15/bin/pg_config
#   -DPG_CONFIG=/path/to/pg_config   any other installation
#
# Without either, PostgreSQL 13's Debian path is tried, then pg_config on PATH.
set(PG_SUPPORTED_MAJORS 13 14 15 16 17 18)

set(PG_MAJOR "" CACHE STRING "PostgreSQL major version to build for (13 to 18); picks /usr/lib/postgresql/N/bin/pg_config")
list(JOIN PG_SUPPORTED_MAJORS ", " PG_SUPPORTED_LIST)
if(PG_MAJOR AND NOT PG_MAJOR IN_LIST PG_SUPPORTED_MAJORS)
  message(FATAL_ERROR "PG_MAJOR=${PG_MAJOR} is not supported (supported majors: ${PG_SUPPORTED_LIST})")
endif()
if(PG_MAJOR AND NOT PG_CONFIG)
  set(PG_CONFIG "/usr/lib/postgresql/${PG_MAJOR}/bin/pg_config" CACHE FILEPATH "pg_config of the target PostgreSQL" FORCE)
  if(NOT EXISTS "${PG_CONFIG}")
    message(FATAL_ERROR "PG_MAJOR=${PG_MAJOR}: ${PG_CONFIG} not found; install postgresql-server-dev-${PG_MAJOR} "
                        "or pass -DPG_CONFIG=...")
  endif()
endif()
if(NOT PG_CONFIG)
  find_program(PG_CONFIG NAMES pg_config PATHS /usr/lib/postgresql/13/bin NO_DEFAULT_PATH)
  find_program(PG_CONFIG NAMES pg_config)
  if(NOT PG_CONFIG)
    message(FATAL_ERROR "pg_config not found: install the server development files (scripts/setup.sh) "
                        "or pass -DPG_MAJOR=N or -DPG_CONFIG=...")
  endif()
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
if(NOT PG_VERSION_STRING MATCHES "^PostgreSQL ([0-9]+)")
  message(FATAL_ERROR "${PG_CONFIG} reports an unknown version: ${PG_VERSION_STRING}")
endif()
set(PG_VERSION_MAJOR "${CMAKE_MATCH_1}" CACHE INTERNAL "major of the PostgreSQL built against")
if(NOT PG_VERSION_MAJOR IN_LIST PG_SUPPORTED_MAJORS)
  message(FATAL_ERROR "PostgreSQL ${PG_VERSION_MAJOR} is not supported (supported majors: ${PG_SUPPORTED_LIST}); "
                      "${PG_CONFIG} reports ${PG_VERSION_STRING}")
endif()
if(PG_MAJOR AND NOT PG_MAJOR STREQUAL PG_VERSION_MAJOR)
  message(FATAL_ERROR "PG_MAJOR=${PG_MAJOR} but ${PG_CONFIG} reports ${PG_VERSION_STRING}; "
                      "use a build directory per major")
endif()

pg_config_value(PG_INCLUDEDIR_SERVER --includedir-server)
pg_config_value(PG_PKGLIBDIR --pkglibdir)
pg_config_value(PG_SHAREDIR --sharedir)
pg_config_value(PG_BINDIR --bindir)
pg_config_value(PG_PGXS --pgxs)

get_filename_component(PG_PGXS_DIR "${PG_PGXS}" DIRECTORY)
set(PG_REGRESS "${PG_PGXS_DIR}/../test/regress/pg_regress")
message(STATUS "Building against ${PG_VERSION_STRING} (${PG_CONFIG})")
