# kmxf_python_test(LABEL NAME TEST): the test LABEL.NAME runs the program through TEST, a module of this folder or a part of it.
function(kmxf_python_test label name test)
    add_test(NAME ${label}.${name} COMMAND ${KMXF_PYTHON} -B -m unittest ${test}
        WORKING_DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR})
    set_tests_properties(${label}.${name} PROPERTIES LABELS ${label} TIMEOUT 300)
    set_property(TEST ${label}.${name} PROPERTY ENVIRONMENT KMXF_PROGRAM=$<TARGET_FILE:kmxf_app>
        KMXF_SOURCE=${PROJECT_SOURCE_DIR} PYTHONPATH=${PROJECT_SOURCE_DIR}/tests/program)
endfunction()
