# The WebAssembly build, configured with emcmake into build-web/:
#   kestro-convert.js  the headless converter for node, on the real file system
#   kestro-web.js/.wasm  the engine the page's worker loads
#   kestro_tests.js    the unit tests that need neither processes nor DICOM
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
set(CMAKE_EXECUTABLE_SUFFIX ".js")
add_link_options(-fwasm-exceptions -sALLOW_MEMORY_GROWTH=1 -sMAXIMUM_MEMORY=4GB -sTOTAL_STACK=8MB)

# Node programs: the machine's files through NODERAWFS, the wasm inside the
# script so that it loads without fetch.
set(KESTRO_NODE_LINK -sNODERAWFS=1 -sSINGLE_FILE=1 -sEXIT_RUNTIME=1 -sENVIRONMENT=node)

add_executable(kestro-convert cli/main.cpp cli/ProgressLine.cpp)
target_link_libraries(kestro-convert PRIVATE kestro_engine)
target_link_options(kestro-convert PRIVATE ${KESTRO_NODE_LINK})

add_executable(kestro-web web/engine/WebEngine.cpp)
target_link_libraries(kestro-web PRIVATE kestro_engine)
target_link_options(kestro-web PRIVATE -sENVIRONMENT=worker -sMODULARIZE=1 -sEXPORT_NAME=createKestro
  -lworkerfs.js -sFORCE_FILESYSTEM=1 -sEXPORTED_RUNTIME_METHODS=FS,ccall,cwrap,UTF8ToString
  -sINCOMING_MODULE_JS_API=print,printErr,locateFile,onAbort,kestroHost)

if(KESTRO_TESTS)
  # GoogleTest from Debian's sources (googletest), built for WebAssembly.
  add_subdirectory(/usr/src/googletest/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
  file(GLOB KESTRO_TEST_SOURCES CONFIGURE_DEPENDS ${CMAKE_SOURCE_DIR}/tests/*.cpp)
  # The browser has no trash and no other processes: OutputSafety tests those.
  list(FILTER KESTRO_TEST_SOURCES EXCLUDE REGEX "/(Cli|Dicom|ProgressLine|OutputSafety)[A-Za-z]*Test\\.cpp$")
  add_executable(kestro_tests ${KESTRO_TEST_SOURCES})
  target_link_libraries(kestro_tests PRIVATE kestro_engine gtest gtest_main)
  target_compile_definitions(kestro_tests PRIVATE KESTRO_SAMPLES_DIR="${CMAKE_SOURCE_DIR}/tests/samples")
  target_link_options(kestro_tests PRIVATE ${KESTRO_NODE_LINK})
endif()

# The page beside the engine: build-web/ is the folder to serve or publish.
set(KESTRO_PAGE_OUTPUTS)
foreach(file index.html style.css app.js plot.js worker.js)
  add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/${file}
    COMMAND ${CMAKE_COMMAND} -E copy ${CMAKE_SOURCE_DIR}/web/${file} ${CMAKE_BINARY_DIR}/${file}
    DEPENDS ${CMAKE_SOURCE_DIR}/web/${file})
  list(APPEND KESTRO_PAGE_OUTPUTS ${CMAKE_BINARY_DIR}/${file})
endforeach()
# The zip writer, from web/node_modules (npm ci in web/, as setup.sh runs it).
set(KESTRO_FFLATE ${CMAKE_SOURCE_DIR}/web/node_modules/fflate/esm/browser.js)
if(NOT EXISTS ${KESTRO_FFLATE})
  message(FATAL_ERROR "web/node_modules is missing: run 'npm ci' in web/ (setup.sh does)")
endif()
add_custom_command(OUTPUT ${CMAKE_BINARY_DIR}/fflate.js
  COMMAND ${CMAKE_COMMAND} -E copy ${KESTRO_FFLATE} ${CMAKE_BINARY_DIR}/fflate.js
  DEPENDS ${KESTRO_FFLATE})
add_custom_target(kestro-page ALL DEPENDS ${KESTRO_PAGE_OUTPUTS} ${CMAKE_BINARY_DIR}/fflate.js kestro-web)
