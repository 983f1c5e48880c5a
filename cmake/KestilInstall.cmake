# Installing Kestil (cmake --install) and packaging it (cpack -G DEB).
#
# The installation holds the program, the llama.cpp and whisper.cpp libraries
# it was built against when they did not come from the system (in
# lib/kestil, found through the program's RPATH relative to itself, so the
# tree works wherever it is unpacked), the speaker diarisation helper in
# libexec/kestil with sherpa-onnx and ONNX Runtime beside the other private
# libraries, the .desktop file, the AppStream metainfo and the hicolor icons.
include(GNUInstallDirs)

set(KESTIL_APPLICATION_ID "app.kestil.Kestil")

# Deployment settings: where the support actions lead.
set(KESTIL_HOMEPAGE_URL "https://kestil.app" CACHE STRING "The product's link, shared by \"Share Kestil\"")
set(KESTIL_SUPPORT_TIP_URL "https://kestil.app/support" CACHE STRING "The page \"Leave a Tip\" opens")
set(KESTIL_SUPPORT_EMAIL "support@kestil.app" CACHE STRING "The address \"Send Feedback\" writes to")
target_compile_definitions(kestil_shell PRIVATE
  KESTIL_HOMEPAGE_URL="${KESTIL_HOMEPAGE_URL}"
  KESTIL_SUPPORT_TIP_URL="${KESTIL_SUPPORT_TIP_URL}"
  KESTIL_SUPPORT_EMAIL="${KESTIL_SUPPORT_EMAIL}")

install(TARGETS kestil RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})

# The native libraries of the bootstrap prefix travel with the program; a
# system's own llama.cpp and whisper.cpp stay where the system keeps them.
set(_kestil_private_libs "")
set(_kestil_from_prefix -1)
if(KESTIL_NATIVE_PREFIX)
  string(FIND "${llama_DIR}" "${KESTIL_NATIVE_PREFIX}" _kestil_from_prefix)
endif()
if(_kestil_from_prefix EQUAL 0)
  set(_kestil_private_libs "${CMAKE_INSTALL_LIBDIR}/kestil")
  install(DIRECTORY "${KESTIL_NATIVE_PREFIX}/lib/" DESTINATION "${_kestil_private_libs}"
    FILES_MATCHING PATTERN "lib*.so*"
    PATTERN "cmake" EXCLUDE
    PATTERN "pkgconfig" EXCLUDE)
  # Relative to the program, so the installed tree runs wherever it lies.
  # It is an old-style RPATH (the build links with --disable-new-dtags), which
  # also serves libllama's and libwhisper's own search for libggml.
  set_target_properties(kestil PROPERTIES INSTALL_RPATH "$ORIGIN/../${_kestil_private_libs}")
else()
  set_target_properties(kestil PROPERTIES INSTALL_RPATH "")
endif()

# sherpa-onnx never comes from the system: its two libraries always travel
# with the helper, which finds them relative to itself. libsherpa-onnx-c-api
# finds libonnxruntime beside itself through its own $ORIGIN.
set(_kestil_sherpa_libs "${CMAKE_INSTALL_LIBDIR}/kestil")
install(FILES "${_kestil_sherpa_library}" "${_kestil_onnxruntime_library}" DESTINATION "${_kestil_sherpa_libs}")
install(TARGETS kestil-diarisation-worker RUNTIME DESTINATION "${CMAKE_INSTALL_LIBEXECDIR}/kestil")
file(RELATIVE_PATH _kestil_worker_to_libs "/prefix/${CMAKE_INSTALL_LIBEXECDIR}/kestil" "/prefix/${_kestil_sherpa_libs}")
set_target_properties(kestil-diarisation-worker PROPERTIES INSTALL_RPATH "$ORIGIN/${_kestil_worker_to_libs}")

# The application icon at the hicolor sizes, drawn by the program's own code.
add_executable(kestil_icon_renderer
  "${PROJECT_SOURCE_DIR}/packaging/IconRenderer.cpp"
  "${PROJECT_SOURCE_DIR}/src/shell/ApplicationIcon.cpp")
target_include_directories(kestil_icon_renderer PRIVATE "${PROJECT_SOURCE_DIR}/src")
target_link_libraries(kestil_icon_renderer PRIVATE Qt6::Gui)
kestil_warnings(kestil_icon_renderer)
set(_kestil_icon_sizes 16 24 32 48 64 128 256 512)
set(_kestil_icons "")
foreach(size IN LISTS _kestil_icon_sizes)
  list(APPEND _kestil_icons "${CMAKE_BINARY_DIR}/icons/${size}x${size}/apps/${KESTIL_APPLICATION_ID}.png")
endforeach()
add_custom_command(OUTPUT ${_kestil_icons}
  COMMAND kestil_icon_renderer "${CMAKE_BINARY_DIR}/icons" ${_kestil_icon_sizes}
  DEPENDS kestil_icon_renderer
  COMMENT "Drawing the application icon")
add_custom_target(kestil_icons ALL DEPENDS ${_kestil_icons})
install(DIRECTORY "${CMAKE_BINARY_DIR}/icons/" DESTINATION "${CMAKE_INSTALL_DATADIR}/icons/hicolor")

install(FILES "${PROJECT_SOURCE_DIR}/packaging/${KESTIL_APPLICATION_ID}.desktop"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/applications")
install(FILES "${PROJECT_SOURCE_DIR}/packaging/${KESTIL_APPLICATION_ID}.metainfo.xml"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/metainfo")

# cpack -G DEB: a package for Debian 12. dpkg-shlibdeps works out the
# libraries it needs (the private ones in lib/kestil are its own); the data
# the program reads at run time is named here.
set(CPACK_PACKAGE_NAME "kestil")
set(CPACK_PACKAGE_VENDOR "The Kestil developers")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Private voice and meeting notes, summarized on this computer")
set(CPACK_PACKAGE_DESCRIPTION
  "Kestil records the microphone and, if asked, the sound of other applications, transcribes it live on this computer, and writes summaries, titles and tags with an on-device language model. No note text or audio leaves the computer.")
set(CPACK_PACKAGE_CONTACT "The Kestil developers <${KESTIL_SUPPORT_EMAIL}>")
set(CPACK_PACKAGE_HOMEPAGE_URL "${KESTIL_HOMEPAGE_URL}")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION "sound")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The same files as in lib/kestil, where they were built or unpacked.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${KESTIL_SHERPA_ONNX_PREFIX}/lib")
if(_kestil_private_libs)
  list(APPEND CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${KESTIL_NATIVE_PREFIX}/lib")
endif()
set(CPACK_DEBIAN_PACKAGE_DEPENDS "qt6-qpa-plugins, fonts-dejavu-core, pocketsphinx-en-us, wordnet-base")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pipewire-pulse | pulseaudio, xdg-desktop-portal")
include(CPack)
