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
          ${CMAKE_INSTALL_DATADIR}/doc/vesk/examples/iris_raw.csv
          ${CMAKE_INSTALL_DATADIR}/vesk/python/vesk/__init__.py)
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
if(PYTHON)
  # The README's install: PYTHONPATH=PREFIX/share/vesk/python, nothing else;
  # fit from a folder outside the source tree with an empty PATH.
  file(MAKE_DIRECTORY ${PREFIX}/work)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env --unset=VESK_BIN PATH=
            PYTHONPATH=${PREFIX}/${CMAKE_INSTALL_DATADIR}/vesk/python MPLBACKEND=Agg
            ${PYTHON} -c "import vesk, pandas as pd\n\
m = vesk.Mixture(n_classes=2, restarts=1, progress=False)\n\
m.fit(pd.DataFrame({'x': [0.1, 0.2, 0.15, 5.0, 5.2, 5.1]}))\n\
assert m.programs_['found in'] == 'install tree', m.programs_\n\
assert m.programs_['vesk'].startswith('${PREFIX}/'), m.programs_\n\
print(m.n_classes_)"
    WORKING_DIRECTORY ${PREFIX}/work RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "the installed package did not fit with the installed programs:\n${out}${err}")
  endif()
  execute_process(COMMAND ${PYTHON} ${PREFIX}/${CMAKE_INSTALL_DATADIR}/vesk/tools/vesk_result.py --help
                  RESULT_VARIABLE rc OUTPUT_QUIET)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "the installed vesk_result.py does not find the package")
  endif()
endif()
file(REMOVE_RECURSE ${PREFIX})
