# Installs the build into PREFIX and checks that every installed piece is
# there and runs.
file(REMOVE_RECURSE ${PREFIX})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX}
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "cmake --install failed")
endif()
include(GNUInstallDirs)
foreach(f ${CMAKE_INSTALL_BINDIR}/vesk ${CMAKE_INSTALL_BINDIR}/vesk-prep
          ${CMAKE_INSTALL_DATADIR}/vesk/tools/vesk_result.py
          ${CMAKE_INSTALL_DATADIR}/vesk/tools/vesk_plot.py
          ${CMAKE_INSTALL_DATADIR}/doc/vesk/README.md
          ${CMAKE_INSTALL_DATADIR}/doc/vesk/examples/iris_raw.csv)
  if(NOT EXISTS ${PREFIX}/${f})
    message(FATAL_ERROR "not installed: ${f}")
  endif()
endforeach()
foreach(prog vesk vesk-prep)
  execute_process(COMMAND ${PREFIX}/${CMAKE_INSTALL_BINDIR}/${prog} --help
                  RESULT_VARIABLE rc OUTPUT_QUIET)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "installed ${prog} --help failed")
  endif()
endforeach()
file(REMOVE_RECURSE ${PREFIX})
