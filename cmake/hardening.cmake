# What makes a fault in the code harder to use: for every program and library of every build.
# tests/hardening_test.sh checks the files.
include(CheckPIESupported)
include(CheckCXXSourceCompiles)

if(MIRT_SANITIZE MATCHES "address")
  # Programs at fixed addresses, for tests only: these start many programs, and the loader would need
  # more than a tenth of a second to relocate the data of UndefinedBehaviorSanitizer.
  add_link_options($<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-no-pie>)
else()
  check_pie_supported(LANGUAGES C CXX)
endif()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
add_compile_options(-fstack-protector-strong -fstack-clash-protection)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|amd64|i.86")
  add_compile_options(-fcf-protection)
endif()
add_link_options(LINKER:-z,relro LINKER:-z,now)

# Checked library functions need optimization. A sanitizer replaces these functions by its own, which
# find more, and does not know the checked ones.
set(optimized "$<NOT:$<CONFIG:Debug>>")
if(NOT MIRT_SANITIZE AND NOT MIRT_BUILD_FUZZ)
  # The C library refuses level 3 with a warning where the compiler does not have it. A distribution
  # may have set a level in its flags.
  set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
  check_cxx_source_compiles("#include <cstdio>\nint main() { return 0; }" has_fortify_3)
  unset(CMAKE_REQUIRED_FLAGS)
  set(fortify_level $<IF:$<BOOL:${has_fortify_3}>,3,2>)
  add_compile_options("$<${optimized}:-U_FORTIFY_SOURCE>"
                      "$<${optimized}:-D_FORTIFY_SOURCE=${fortify_level}>")
endif()
