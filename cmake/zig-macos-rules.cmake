# Read behind CMake's own rules for Darwin, which on another system lack run paths, and name the
# current version in a form that the Zig tool chain drops without a word.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
foreach(language C CXX)
    set(CMAKE_${language}_OSX_CURRENT_VERSION_FLAG "-Wl,-current_version,")
endforeach()
