# Every public header compiles alone: one generated source per header includes it first, and once more.
file(GLOB_RECURSE headers RELATIVE ${CMAKE_SOURCE_DIR}/inc CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/inc/*.h)
# Halves that only make sense around the statements of a contract header.
list(REMOVE_ITEM headers tvapi/begin.h tvapi/end.h)

set(cxx_sources)
set(c_sources)
set(c_contract_sources)
foreach(header IN LISTS headers)
  string(MAKE_C_IDENTIFIER ${header} name)
  set(stem ${CMAKE_CURRENT_BINARY_DIR}/headers/${name})
  set(text "#include \"${header}\"\n#include \"${header}\"\n")
  file(CONFIGURE OUTPUT ${stem}.cpp CONTENT "${text}" @ONLY)
  list(APPEND cxx_sources ${stem}.cpp)
  if(header MATCHES "^tvapi/" OR header MATCHES "^dtv_[a-z_]+\\.h$")
    # A C source may not be empty of declarations.
    file(CONFIGURE OUTPUT ${stem}.c CONTENT "${text}typedef int ${name}_compiles;\n" @ONLY)
    if(header MATCHES "^tvapi/")
      list(APPEND c_contract_sources ${stem}.c)
    else()
      list(APPEND c_sources ${stem}.c)
    endif()
  endif()
endforeach()

add_library(headers_cxx_test OBJECT ${cxx_sources})
target_link_libraries(headers_cxx_test PRIVATE dtv_options)

foreach(extensions ON OFF)
  set(properties C_STANDARD 11 C_STANDARD_REQUIRED ON C_EXTENSIONS ${extensions})
  set(target headers_c_extensions_${extensions}_test)
  add_library(${target} OBJECT ${c_sources})
  target_link_libraries(${target} PRIVATE dtv_options)
  set_target_properties(${target} PROPERTIES ${properties})

  # Not pedantic: the statements' macros use __VA_OPT__, which is newer than C11 but known to the compilers of both
  # machines.
  set(target headers_c_contract_extensions_${extensions}_test)
  add_library(${target} OBJECT ${c_contract_sources})
  target_include_directories(${target} PRIVATE ${CMAKE_SOURCE_DIR}/inc)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wconversion -Werror)
  set_target_properties(${target} PROPERTIES ${properties})
endforeach()
