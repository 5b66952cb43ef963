# Two interface targets: build_flags has the flags of all sources, python_limited_api those that
# sources with Python calls need in addition.
add_library(build_flags INTERFACE)
target_compile_features(build_flags INTERFACE cxx_std_20)
target_include_directories(build_flags INTERFACE "${PROJECT_SOURCE_DIR}/src")
target_compile_options(
  build_flags
  INTERFACE -fPIC
            -fvisibility=hidden
            -fvisibility-inlines-hidden
            -Wall
            -Wextra
            -Wpedantic
            -Wconversion
            -Wsign-conversion
            -Wshadow
            -Werror
            # GCC 12 reports overlapping copies in std::string, and reads past the inline elements of
            # small_vector, by mistake.
            "$<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict;-Wno-stringop-overread>")

# Targets of test code have the property ONLY_TESTS. They are instrumented only for heap errors and
# not for coverage: full instrumentation would take as long to compile as everything else.
set(is_product "$<NOT:$<BOOL:$<TARGET_PROPERTY:ONLY_TESTS>>>")

if(VELMAR_SANITIZE)
  # trace-pc reports coverage to a fuzzer: each block of code calls the function in coverage_map.
  add_library(coverage_map SHARED "${PROJECT_SOURCE_DIR}/torture/coverage_map.cpp")
  target_link_libraries(build_flags INTERFACE coverage_map)
  set(watch_product -fsanitize=undefined -fno-sanitize-recover=all -fsanitize-coverage=trace-pc)
  target_compile_options(
    build_flags INTERFACE -fsanitize=address -fno-omit-frame-pointer
                          "$<IF:${is_product},${watch_product},--param=asan-stack=0>")
  target_link_options(build_flags INTERFACE -fsanitize=address,undefined)
endif()

if(VELMAR_COVERAGE)
  # Without thread-safe statics: all code runs under the interpreter's lock, so the branch for a
  # second thread would never be taken.
  target_compile_options(build_flags INTERFACE -fno-threadsafe-statics "$<${is_product}:--coverage>")
  target_link_options(build_flags INTERFACE --coverage)
endif()

find_package(Boost 1.71 REQUIRED)
target_include_directories(build_flags SYSTEM INTERFACE ${Boost_INCLUDE_DIRS})
# Newer versions of Boost otherwise report lack of memory with classes of their own.
target_compile_definitions(build_flags INTERFACE BOOST_CONTAINER_USE_STD_EXCEPTIONS)

# Headers only: Python's names are resolved by the interpreter that loads the module, so that one
# file works with all versions. 0x030B0000 is 3.11, the first version whose stable interface has the
# buffer protocol.
find_package(Python 3.11 REQUIRED COMPONENTS Interpreter Development.Module)
add_library(python_limited_api INTERFACE)
target_include_directories(python_limited_api SYSTEM INTERFACE ${Python_INCLUDE_DIRS})
target_compile_definitions(python_limited_api INTERFACE Py_LIMITED_API=0x030B0000)
