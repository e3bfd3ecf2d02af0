# ondaro_add_test(<name> LABEL <subsystem> SOURCES <files...> LIBS <targets...>
#                 [TIMEOUT <s>] [RESOURCE_LOCK <name>] [ENV <VAR=value...>])
# One Qt Test program per class or concern, labelled by subsystem so `ctest -L library` works.
function(ondaro_add_test name)
    cmake_parse_arguments(T "" "LABEL;TIMEOUT;RESOURCE_LOCK" "SOURCES;LIBS;ENV" ${ARGN})
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE Qt6::Test ${T_LIBS})
    if(TARGET ondaro_testsupport)
        target_link_libraries(${name} PRIVATE ondaro_testsupport)
    endif()
    target_compile_definitions(${name} PRIVATE
        ONDARO_SOURCE_DIR="${PROJECT_SOURCE_DIR}"
        ONDARO_FIXTURE_DIR="${PROJECT_BINARY_DIR}/fixtures")
    add_test(NAME ${name} COMMAND ${name})
    if(NOT T_TIMEOUT)
        set(T_TIMEOUT 300)
    endif()
    set_tests_properties(${name} PROPERTIES
        LABELS "${T_LABEL}"
        TIMEOUT ${T_TIMEOUT}
        ENVIRONMENT "QT_QPA_PLATFORM=offscreen;QT_MEDIA_BACKEND=gstreamer;${T_ENV}")
    if(T_RESOURCE_LOCK)
        # Tests that play through the shared null sink must not overlap.
        set_tests_properties(${name} PROPERTIES RESOURCE_LOCK "${T_RESOURCE_LOCK}")
    endif()
endfunction()
