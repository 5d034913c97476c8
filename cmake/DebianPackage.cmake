# The Debian package of the tool: the stripped binary, its manual page and changelog compressed
# as Debian's policy asks, the copyright file, and dependencies computed by dpkg-shlibdeps.
# Build it with `cmake --workflow --preset package` after `scripts/prerequisites.sh --package`
# (dpkg-shlibdeps comes with dpkg-dev, and CPack needs the file utility to find the binaries).

set(KVO_DOC_DIR ${CMAKE_INSTALL_DATAROOTDIR}/doc/sonajoin)
foreach(page IN ITEMS docs/sonajoin.1 packaging/changelog)
  get_filename_component(name ${page} NAME)
  add_custom_command(OUTPUT "${CMAKE_BINARY_DIR}/${name}.gz"
                     COMMAND gzip -9 -n -c "${CMAKE_SOURCE_DIR}/${page}" > "${CMAKE_BINARY_DIR}/${name}.gz"
                     DEPENDS "${CMAKE_SOURCE_DIR}/${page}" VERBATIM)
  list(APPEND KVO_COMPRESSED_DOCS "${CMAKE_BINARY_DIR}/${name}.gz")
endforeach()
add_custom_target(sonajoin-docs ALL DEPENDS ${KVO_COMPRESSED_DOCS})

# A stripped install (CPack's) also drops the sections that Debian's own strip removes.
install(CODE "if(CMAKE_INSTALL_DO_STRIP)
  execute_process(COMMAND \"${CMAKE_STRIP}\" --remove-section=.comment --remove-section=.note
                  \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/sonajoin\" COMMAND_ERROR_IS_FATAL ANY)
endif()" COMPONENT tool)
install(FILES "${CMAKE_BINARY_DIR}/sonajoin.1.gz" DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
install(FILES "${CMAKE_BINARY_DIR}/changelog.gz" packaging/copyright DESTINATION ${KVO_DOC_DIR} COMPONENT tool)

set(CPACK_PACKAGE_NAME sonajoin)
set(CPACK_PACKAGE_CONTACT "sonajoin maintainers <sonajoin@orvane.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "append audio files, in list order, into one new file")
set(CPACK_PACKAGE_DESCRIPTION
    "sonajoin reads WAV (RIFF, RF64, Wave64), AIFF/AIFF-C and MPEG audio (Layers I,
II and III) and appends them into one WAV, RF64 or AIFF file. The output takes
the sample rate and bit depth of the first input and the channel count of the
widest one; it does not resample, mix or apply gain.")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_GROUPING ALL_COMPONENTS_IN_ONE)
set(CPACK_COMPONENTS_ALL tool)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
include(CPack)
