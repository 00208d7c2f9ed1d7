# Warnings of our own builds, for every target of this project; `cmake --compile-no-warning-as-error` lets them pass.
set(CMAKE_COMPILE_WARNING_AS_ERROR ON)

if(MSVC)
  add_compile_options(/W4 /permissive-)
else()
  add_compile_options(
    -Wall
    -Wextra
    -Wpedantic
    # A parameter of a setter has the name of its getter, which g++ takes for shadowing where it is a pointer.
    $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow>
    -Wconversion
    -Wno-sign-conversion # indices are long where the interface has long, and meet std::size_t in every loop
    -Wold-style-cast
    -Wcast-qual
    -Wnon-virtual-dtor
    -Woverloaded-virtual
    -Wundef)
endif()
