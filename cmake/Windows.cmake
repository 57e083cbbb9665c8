# The Windows cross build (cmake/mingw-w64.cmake) into build-win/:
#   kestro-convert.exe  the headless converter
#   kestro_tests.exe    the unit tests that need no DICOM, run under wine
# No window: Qt is not cross-built here.
add_executable(kestro-convert cli/main.cpp cli/ProgressLine.cpp)
# The Recycle Bin and the wide command line come from the shell.
target_link_libraries(kestro_engine PUBLIC shell32)
target_link_libraries(kestro-convert PRIVATE kestro_engine)

if(KESTRO_TESTS)
  enable_testing()
  # GoogleTest from Debian's sources (googletest), built for Windows.
  set(gtest_disable_pthreads ON CACHE BOOL "" FORCE)
  add_subdirectory(/usr/src/googletest/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  file(GLOB KESTRO_TEST_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/*.cpp)
  # The command-line tests run kestro-convert.exe from the native suite
  # (KESTRO_CONVERT_COMMAND); the progress line needs a Unix terminal and
  # the trash tests the freedesktop.org trash.
  list(FILTER KESTRO_TEST_SOURCES EXCLUDE REGEX "/(Cli|Dicom|OutputSafety|ProgressLine)[A-Za-z]*Test\\.cpp$")
  add_executable(kestro_tests ${KESTRO_TEST_SOURCES})
  target_link_libraries(kestro_tests PRIVATE kestro_engine gtest gtest_main)
  # GCC 12 warns falsely of overlapping copies in the tests' text
  # concatenations (its bug 105329) once the Windows folder helper is inlined.
  target_compile_options(kestro_tests PRIVATE -Wno-restrict)
  # Under wine the machine's own files are on drive Z:.
  if(CMAKE_CROSSCOMPILING_EMULATOR MATCHES wine)
    set(KESTRO_SAMPLES "Z:${CMAKE_SOURCE_DIR}/tests/samples")
  else()
    set(KESTRO_SAMPLES "${CMAKE_SOURCE_DIR}/tests/samples")
  endif()
  target_compile_definitions(kestro_tests PRIVATE KESTRO_SAMPLES_DIR="${KESTRO_SAMPLES}")
  add_test(NAME kestro_tests COMMAND kestro_tests)
endif()
