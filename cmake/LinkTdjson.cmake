# cmake -DLIBRARY=... -DLINK=... -P LinkTdjson.cmake
# Links the library at LINK when it exists; without it td_backend runs the demo engine.
if(EXISTS "${LIBRARY}")
  file(CREATE_LINK "${LIBRARY}" "${LINK}" SYMBOLIC)
else()
  message(STATUS "No TDLib at ${LIBRARY} (scripts/fetch_tdlib.sh gets it); td_backend runs the demo engine")
endif()
