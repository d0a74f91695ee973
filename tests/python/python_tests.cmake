# The Python package's tests (python/tests: the package, the result reader
# and the tools) against the built programs. They need a Python 3 with
# pandas and matplotlib:
# Debian's /usr/bin/python3 with python3-pandas and python3-matplotlib is
# preferred, then the python3 first on PATH. Set VESK_PYTHON to choose.
set(VESK_PYTHON "" CACHE FILEPATH "Python 3 interpreter with pandas and matplotlib")
if(NOT VESK_PYTHON)
  find_program(VESK_PATH_PYTHON3 NAMES python3)
  foreach(candidate /usr/bin/python3 ${VESK_PATH_PYTHON3})
    if(EXISTS ${candidate})
      execute_process(COMMAND ${candidate} -c "import pandas, matplotlib"
                      RESULT_VARIABLE has_modules OUTPUT_QUIET ERROR_QUIET)
      if(has_modules EQUAL 0)
        set(VESK_PYTHON ${candidate} CACHE FILEPATH
            "Python 3 interpreter with pandas and matplotlib" FORCE)
        break()
      endif()
    endif()
  endforeach()
endif()

if(VESK_PYTHON)
  file(GLOB VESK_PACKAGE_TESTS CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/python/tests/test_*.py)
  foreach(file ${VESK_PACKAGE_TESTS})
    get_filename_component(suite ${file} NAME_WE)
    add_test(NAME python.package.${suite}
             COMMAND ${VESK_PYTHON} -m unittest -v ${suite}
             WORKING_DIRECTORY ${CMAKE_SOURCE_DIR}/python/tests)
    set_tests_properties(python.package.${suite} PROPERTIES ENVIRONMENT
      "VESK_BIN=$<TARGET_FILE_DIR:vesk>;MPLBACKEND=Agg;PYTHONDONTWRITEBYTECODE=1")
  endforeach()
else()
  message(WARNING "No python3 with pandas and matplotlib (Debian: python3-pandas "
                  "python3-matplotlib): the tool tests are reported as skipped")
  add_test(NAME python.tools_skipped
           COMMAND sh -c "echo 'no python3 with pandas and matplotlib'; exit 77")
  set_tests_properties(python.tools_skipped PROPERTIES SKIP_RETURN_CODE 77)
endif()

# `cmake --install` puts both programs, the tools and the package in place;
# the installed package, on PYTHONPATH alone, finds the installed programs.
add_test(NAME install.layout
         COMMAND ${CMAKE_COMMAND} -DBUILD_DIR=${CMAKE_BINARY_DIR}
                 -DPREFIX=${CMAKE_CURRENT_BINARY_DIR}/install_check -DPYTHON=${VESK_PYTHON}
                 -P ${CMAKE_CURRENT_SOURCE_DIR}/python/install_check.cmake)
