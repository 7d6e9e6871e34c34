# Installs the application's component into a fresh prefix, then starts the
# installed copy on its bundled example with --screenshot: it must find its
# plug-in and its example where the install rule put them.
#   cmake -DBUILD_DIR=... -DPREFIX=... -P installcheck.cmake
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}
                        --component arraylens
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed: ${rc}")
endif()
foreach(f bin/arraylens lib/arraylens/libArrayLens.so share/arraylens/examples/example_heat
          share/applications/arraylens.desktop)
  if(NOT EXISTS ${PREFIX}/${f})
    message(FATAL_ERROR "not installed: ${f}")
  endif()
endforeach()
set(env)
if("$ENV{DISPLAY}" STREQUAL "")
  list(APPEND env QT_QPA_PLATFORM=offscreen QT_QUICK_BACKEND=software)
endif()
# Nothing from the build tree may help the installed copy find its parts.
execute_process(COMMAND ${CMAKE_COMMAND} -E env --unset=ARRAYLENS_PLUGIN ${env}
                        QTWEBENGINE_DISABLE_SANDBOX=1
                        ${PREFIX}/bin/arraylens --screenshot ${PREFIX}/shot.png
                RESULT_VARIABLE rc ERROR_VARIABLE err TIMEOUT 90)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "the installed application failed (${rc}): ${err}")
endif()
file(SIZE ${PREFIX}/shot.png size)
if(size LESS 20000)
  message(FATAL_ERROR "the installed application's screenshot is only ${size} bytes")
endif()
file(REMOVE_RECURSE ${PREFIX})
