# Precompiled headers: those of the C++ library, Boost.JSON and GoogleTest that most sources of a target include, since reading
# them takes longer than compiling the rest. No header of the project is among them: a change of one would compile the whole
# target again.
#
# <filesystem> is not among them either: it declares std::quoted, which is then found beside our quoted().
#
# The release preset has none, so that it refuses a source that does not include what it uses. clang-tidy reads that build.
set(DTV_STD_HEADERS <algorithm> <array> <atomic> <cerrno> <chrono> <condition_variable> <cstdint> <cstdio> <cstring>
    <deque> <fstream> <functional> <limits> <map> <memory> <mutex> <optional> <set> <span> <string>
    <string_view> <system_error> <thread> <utility> <variant> <vector>)

# ccache stores what was compiled with them if the compilers do as its manual asks; the presets set its sloppiness.
if(NOT CMAKE_DISABLE_PRECOMPILE_HEADERS)
  add_compile_options($<$<COMPILE_LANG_AND_ID:CXX,GNU>:-fpch-preprocess>
                      "$<$<COMPILE_LANG_AND_ID:CXX,Clang>:SHELL:-Xclang -fno-pch-timestamp>")
endif()
