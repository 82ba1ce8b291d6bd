# PostgreSQL: what needs no server of it.
if(TARGET PkgConfig::LIBPQ)
  set(pg_driver ${CMAKE_SOURCE_DIR}/platform/silo)
  vod_add_test(silo_pg_parts_test THREADS
    SOURCES pg_address_test.cpp pg_range_test.cpp pg_resolve_test.cpp pg_refusal_test.cpp ${pg_driver}/pg_address.cpp
            ${pg_driver}/pg_range.cpp ${pg_driver}/pg_resolve.cpp
    LIBS silo PkgConfig::LIBPQ)
endif()

# With servers of the tests' own, out of Debian's package, which has no like for Windows.
if(NOT WIN32)
  add_library(silo_pg_server STATIC pg_programs.cpp pg_server.cpp pg_shared_server.cpp)
  target_link_libraries(silo_pg_server PUBLIC vod_test_support PkgConfig::LIBPQ)
  vod_add_test(silo_pg_driver_test THREADS SOURCES pg_driver_test.cpp pg_writers_test.cpp LIBS silo silo_pg_server)
  vod_add_test(silo_pg_failure_test THREADS SOURCES pg_failover_test.cpp pg_proxy.cpp pg_silence_test.cpp LIBS silo silo_pg_server)
  # The contract's suite takes this kind of store too.
  target_sources(silo_test_stores PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/pg_store.cpp)
  target_link_libraries(silo_test_stores PUBLIC silo_pg_server)
endif()
