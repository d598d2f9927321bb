# Warnings, hardening, sanitizers and the compiler cache, the same for every target.
add_compile_options(-Wall -Wextra -Wpedantic)
if(VELLUMLINE_WERROR)
  add_compile_options(-Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 reports false positives inside coroutine frames and std::variant/std::optional moves at -O2.
  add_compile_options(-Wno-maybe-uninitialized)
endif()
add_compile_definitions(QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_KEYWORDS QT_NO_FOREACH)

if(VELLUMLINE_SANITIZE)
  add_compile_options(-fsanitize=${VELLUMLINE_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${VELLUMLINE_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang" AND VELLUMLINE_SANITIZE MATCHES "undefined")
    # clang 14 cannot assemble a coroutine with -fsanitize=function: "Cannot represent a difference across sections".
    add_compile_options(-fno-sanitize=function)
  endif()
elseif(VELLUMLINE_HARDENING)
  # scripts/check-hardening.sh looks for each of these in the programs. Not with sanitizers: they bring checks of their own,
  # and the replaced functions of _FORTIFY_SOURCE would hide calls from them.
  include(CheckPIESupported)
  check_pie_supported(LANGUAGES CXX)
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  # Bounds and empty containers of the standard library; this costs next to nothing.
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
  include(CheckCXXCompilerFlag)
  add_compile_options(-fstack-protector-strong)
  foreach(flag stack-clash-protection cf-protection=full)
    string(MAKE_C_IDENTIFIER "VELLUMLINE_HAS_${flag}" has_flag)
    check_cxx_compiler_flag(-f${flag} ${has_flag}) # both belong to processors that have them
    if(${has_flag})
      add_compile_options(-f${flag})
    endif()
  endforeach()
  # Fortification needs the optimiser, and glibc warns without it. Undefined first: a distribution's compiler may bring a lower one.
  add_compile_options("$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
endif()

if(VELLUMLINE_FUZZ)
  # Without it in the libraries the fuzzer would not see which of their code an input reaches.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

find_program(VELLUMLINE_CCACHE ccache)
if(VELLUMLINE_CCACHE)
  cmake_path(GET CMAKE_SOURCE_DIR PARENT_PATH vellumline_base_directory)
  set(CMAKE_CXX_COMPILER_LAUNCHER env CCACHE_BASEDIR=${vellumline_base_directory} CCACHE_NOHASHDIR=1 ${VELLUMLINE_CCACHE})
endif()
