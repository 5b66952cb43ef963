# Two interface targets: what every source of ours is compiled with, and what those that speak to
# Python are compiled with on top.
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
            # GCC 12 sees overlaps in std::string where there are none.
            $<$<AND:$<CXX_COMPILER_ID:GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>)

# What tests a product has the property ONLY_TESTS. Of itself it watches no more than the heap, and
# counts nothing: that would take as long to compile as all the rest.
set(is_product "$<NOT:$<BOOL:$<TARGET_PROPERTY:ONLY_TESTS>>>")

if(VELMAR_SANITIZE)
  # It also tells a fuzzer which places it runs through: each calls the one function of this library.
  add_library(coverage_map SHARED "${PROJECT_SOURCE_DIR}/torture/coverage_map.cpp")
  target_link_libraries(build_flags INTERFACE coverage_map)
  set(watch_product -fsanitize=undefined -fno-sanitize-recover=all -fsanitize-coverage=trace-pc)
  target_compile_options(
    build_flags INTERFACE -fsanitize=address -fno-omit-frame-pointer
                          "$<IF:${is_product},${watch_product},--param=asan-stack=0>")
  target_link_options(build_flags INTERFACE -fsanitize=address,undefined)
endif()

if(VELMAR_COVERAGE)
  # The guard of a local static for a second thread would be a branch that nothing takes: all runs
  # under the lock of the interpreter.
  target_compile_options(build_flags INTERFACE -fno-threadsafe-statics "$<${is_product}:--coverage>")
  target_link_options(build_flags INTERFACE --coverage)
endif()

find_package(Boost 1.71 REQUIRED)
target_include_directories(build_flags SYSTEM INTERFACE ${Boost_INCLUDE_DIRS})

# Headers only: the module takes every Python name from the interpreter that loads it, so that one
# file serves all of them. 0x030B0000 is 3.11, the first version whose stable interface has the
# buffer protocol.
find_package(Python 3.11 REQUIRED COMPONENTS Interpreter Development.Module)
add_library(python_limited_api INTERFACE)
target_include_directories(python_limited_api SYSTEM INTERFACE ${Python_INCLUDE_DIRS})
target_compile_definitions(python_limited_api INTERFACE Py_LIMITED_API=0x030B0000)
