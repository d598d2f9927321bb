# Warnings, sanitizers and the compiler cache, the same for every target.
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
