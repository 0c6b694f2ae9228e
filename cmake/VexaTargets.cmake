# vexa_subsystem(name [DEPS other...])
# Builds vexa_<name> (GUI-free: Core, Gui, Network) from
# src/<name>/*.cpp and vexa_<name>_ui (Widgets) from src/<name>/ui/*.cpp.
# A folder without sources still yields an interface target, so
# dependencies can be named before the code exists.
set(VEXA_CORE_LIBS "")
set(VEXA_UI_LIBS "")

function(vexa_subsystem name)
  cmake_parse_arguments(A "" "" "DEPS" ${ARGN})
  set(dir ${CMAKE_SOURCE_DIR}/src/${name})
  file(GLOB core_src CONFIGURE_DEPENDS ${dir}/*.cpp ${dir}/*.h ${dir}/*.qrc)
  file(GLOB ui_src CONFIGURE_DEPENDS ${dir}/ui/*.cpp ${dir}/ui/*.h ${dir}/ui/*.qrc)
  set(core_deps "")
  set(ui_deps "")
  foreach(d IN LISTS A_DEPS)
    list(APPEND core_deps vexa_${d})
    list(APPEND ui_deps vexa_${d}_ui)
  endforeach()

  if(core_src)
    add_library(vexa_${name} STATIC ${core_src})
    target_include_directories(vexa_${name} PUBLIC ${CMAKE_SOURCE_DIR}/src)
    target_link_libraries(vexa_${name} PUBLIC ${core_deps}
      Qt5::Core Qt5::Gui Qt5::Network ${CMAKE_DL_LIBS})
  else()
    add_library(vexa_${name} INTERFACE)
    target_include_directories(vexa_${name} INTERFACE ${CMAKE_SOURCE_DIR}/src)
    target_link_libraries(vexa_${name} INTERFACE ${core_deps})
  endif()

  if(ui_src)
    add_library(vexa_${name}_ui STATIC ${ui_src})
    target_link_libraries(vexa_${name}_ui PUBLIC vexa_${name} ${ui_deps} Qt5::Widgets)
  else()
    add_library(vexa_${name}_ui INTERFACE)
    target_link_libraries(vexa_${name}_ui INTERFACE vexa_${name} ${ui_deps})
  endif()

  set(VEXA_CORE_LIBS ${VEXA_CORE_LIBS} vexa_${name} PARENT_SCOPE)
  set(VEXA_UI_LIBS ${VEXA_UI_LIBS} vexa_${name}_ui PARENT_SCOPE)
endfunction()

# vexa_add_qtest(name SOURCES a.cpp ... LIBS libs... [LABELS ...] [TIMEOUT s] [XVFB] [DBUS])
# One QtTest executable registered with CTest, run headless: offscreen, or
# with XVFB on the xcb platform of a private Xvfb server. DBUS runs it on a
# private session bus of its own.
function(vexa_add_qtest name)
  cmake_parse_arguments(A "XVFB;DBUS" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${A_SOURCES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${VEXA_TEST_BIN_DIR})
  target_link_libraries(${name} PRIVATE ${A_LIBS} Qt5::Test)
  target_include_directories(${name} PRIVATE ${CMAKE_SOURCE_DIR}/tests)
  # The media module is loaded from beside the program (a link to it).
  add_dependencies(${name} vexa-av)
  set(platform offscreen)
  if(A_XVFB)
    find_program(XVFB_RUN xvfb-run REQUIRED)
    add_test(NAME ${name} COMMAND ${XVFB_RUN} -a -s "-screen 0 640x480x24" $<TARGET_FILE:${name}>)
    set(platform xcb)
  elseif(A_DBUS)
    find_program(DBUS_RUN_SESSION dbus-run-session REQUIRED)
    add_test(NAME ${name} COMMAND ${DBUS_RUN_SESSION} -- $<TARGET_FILE:${name}>)
  else()
    add_test(NAME ${name} COMMAND ${name})
  endif()
  if(NOT A_TIMEOUT)
    set(A_TIMEOUT 300)
  endif()
  set_tests_properties(${name} PROPERTIES TIMEOUT ${A_TIMEOUT}
    ENVIRONMENT "QT_QPA_PLATFORM=${platform};VEXA_SOURCE_DIR=${CMAKE_SOURCE_DIR};VEXA_BIN_DIR=${CMAKE_BINARY_DIR}/bin")
  if(A_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${A_LABELS}")
  endif()
endfunction()
