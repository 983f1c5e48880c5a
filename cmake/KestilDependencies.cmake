# Every native dependency of Kestil, found once here. llama.cpp and whisper.cpp
# come from the system when it has them, otherwise from the prefix that
# scripts/native-deps.sh builds (passed as KESTIL_NATIVE_PREFIX).
find_package(Qt6 6.4 REQUIRED COMPONENTS Core Gui Widgets DBus Network Test)
find_package(SQLite3 REQUIRED)
find_package(ICU REQUIRED COMPONENTS uc i18n)
find_package(PkgConfig REQUIRED)
pkg_check_modules(SNDFILE REQUIRED IMPORTED_TARGET sndfile)
pkg_check_modules(SOXR REQUIRED IMPORTED_TARGET soxr)
pkg_check_modules(PULSE REQUIRED IMPORTED_TARGET libpulse)
# Debian's sphinxbase.pc names /usr/include/sphinxbase, which does not exist
# (the headers are under the multiarch folder): keep only the folders that do.
pkg_check_modules(POCKETSPHINX REQUIRED pocketsphinx sphinxbase)
set(_kestil_pocketsphinx_includes)
foreach(dir IN LISTS POCKETSPHINX_INCLUDE_DIRS)
  if(EXISTS "${dir}")
    list(APPEND _kestil_pocketsphinx_includes "${dir}")
  endif()
endforeach()
add_library(PkgConfig::POCKETSPHINX INTERFACE IMPORTED)
set_target_properties(PkgConfig::POCKETSPHINX PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES "${_kestil_pocketsphinx_includes}"
  INTERFACE_LINK_LIBRARIES "${POCKETSPHINX_LINK_LIBRARIES}")
pkg_check_modules(CMARKGFM REQUIRED IMPORTED_TARGET libcmark-gfm)
find_library(CMARKGFM_EXTENSIONS_LIBRARY NAMES cmark-gfm-extensions REQUIRED)

# A system that provides both llama.cpp and whisper.cpp (sharing one ggml) is
# used as it is; otherwise the prefix built by scripts/native-deps.sh.
# The probe starts afresh on every configure: the directories cached from the
# prefix on an earlier run would otherwise pass for a system installation.
unset(llama_DIR CACHE)
unset(whisper_DIR CACHE)
unset(ggml_DIR CACHE)
find_package(llama CONFIG QUIET NO_CMAKE_PATH NO_CMAKE_ENVIRONMENT_PATH)
find_package(whisper CONFIG QUIET NO_CMAKE_PATH NO_CMAKE_ENVIRONMENT_PATH)
if(llama_FOUND AND whisper_FOUND)
  message(STATUS "llama.cpp from ${llama_DIR}, whisper.cpp from ${whisper_DIR}")
  find_package(ggml REQUIRED)
else()
  if(NOT KESTIL_NATIVE_PREFIX)
    message(FATAL_ERROR "llama.cpp and whisper.cpp were not found: run scripts/native-deps.sh and pass its "
                        "prefix as -DKESTIL_NATIVE_PREFIX=<prefix> (scripts/run and scripts/test do this).")
  endif()
  list(PREPEND CMAKE_PREFIX_PATH "${KESTIL_NATIVE_PREFIX}")
  set(CMAKE_BUILD_RPATH "${KESTIL_NATIVE_PREFIX}/lib")
  set(CMAKE_INSTALL_RPATH "${KESTIL_NATIVE_PREFIX}/lib")
  # libllama and libwhisper find their own libggml.so only through the
  # program's search path: an old-style RPATH applies to them too, a RUNPATH
  # would not.
  add_link_options("LINKER:--disable-new-dtags")
  find_package(ggml REQUIRED PATHS "${KESTIL_NATIVE_PREFIX}" NO_DEFAULT_PATH)
  find_package(llama REQUIRED PATHS "${KESTIL_NATIVE_PREFIX}" NO_DEFAULT_PATH)
  find_package(whisper REQUIRED PATHS "${KESTIL_NATIVE_PREFIX}" NO_DEFAULT_PATH)
endif()

# Where PocketSphinx's Debian model lives; the engine and the tests read it.
set(KESTIL_POCKETSPHINX_MODEL_DIR "/usr/share/pocketsphinx/model/en-us" CACHE PATH
    "PocketSphinx en-us acoustic model, dictionary and language model")

# sherpa-onnx's C API and the ONNX Runtime under it (speaker diarisation), as
# scripts/native-deps.sh unpacks them from their PyPI wheel: a folder of their
# own beside the llama.cpp prefix, so that neither is rebuilt for the other.
set(_kestil_sherpa_default "")
if(KESTIL_NATIVE_PREFIX)
  get_filename_component(_kestil_native_parent "${KESTIL_NATIVE_PREFIX}" DIRECTORY)
  set(_kestil_sherpa_default "${_kestil_native_parent}/sherpa-onnx-core-2.0.1")
elseif(DEFINED ENV{KESTIL_CACHE_DIR})
  set(_kestil_sherpa_default "$ENV{KESTIL_CACHE_DIR}/native/sherpa-onnx-core-2.0.1")
elseif(DEFINED ENV{XDG_CACHE_HOME})
  set(_kestil_sherpa_default "$ENV{XDG_CACHE_HOME}/kestil/native/sherpa-onnx-core-2.0.1")
else()
  set(_kestil_sherpa_default "$ENV{HOME}/.cache/kestil/native/sherpa-onnx-core-2.0.1")
endif()
set(KESTIL_SHERPA_ONNX_PREFIX "${_kestil_sherpa_default}" CACHE PATH
    "Folder with include/sherpa-onnx/c-api/c-api.h, lib/libsherpa-onnx-c-api.so and lib/libonnxruntime.so")
set(_kestil_sherpa_header "${KESTIL_SHERPA_ONNX_PREFIX}/include/sherpa-onnx/c-api/c-api.h")
set(_kestil_sherpa_library "${KESTIL_SHERPA_ONNX_PREFIX}/lib/libsherpa-onnx-c-api.so")
set(_kestil_onnxruntime_library "${KESTIL_SHERPA_ONNX_PREFIX}/lib/libonnxruntime.so")
if(NOT EXISTS "${_kestil_sherpa_header}" OR NOT EXISTS "${_kestil_sherpa_library}"
   OR NOT EXISTS "${_kestil_onnxruntime_library}")
  message(FATAL_ERROR "sherpa-onnx's C API was not found in '${KESTIL_SHERPA_ONNX_PREFIX}': run "
                      "scripts/native-deps.sh and pass the folder it prints before its last line as "
                      "-DKESTIL_SHERPA_ONNX_PREFIX=<folder> (scripts/run and scripts/test do this).")
endif()
# libsherpa-onnx-c-api.so finds libonnxruntime.so beside itself (its own RPATH
# is $ORIGIN); the linker is told where it is for the symbol check only.
add_library(sherpa-onnx::c-api SHARED IMPORTED)
set_target_properties(sherpa-onnx::c-api PROPERTIES
  IMPORTED_LOCATION "${_kestil_sherpa_library}"
  IMPORTED_SONAME "libsherpa-onnx-c-api.so"
  IMPORTED_LINK_DEPENDENT_LIBRARIES "${_kestil_onnxruntime_library}"
  INTERFACE_INCLUDE_DIRECTORIES "${KESTIL_SHERPA_ONNX_PREFIX}/include")
message(STATUS "sherpa-onnx from ${KESTIL_SHERPA_ONNX_PREFIX}")
