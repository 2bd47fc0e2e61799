# Called by cpack behind its work. It takes each link of a Debian package for a copy of what the link leads to, so that a
# tenfold size would be announced. The package is packed anew with the size that it has.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  if(NOT package MATCHES "\\.deb$")
    continue()
  endif()
  set(folder ${CPACK_TEMPORARY_DIRECTORY}/resized)
  file(REMOVE_RECURSE ${folder})
  execute_process(COMMAND dpkg-deb --raw-extract ${package} ${folder} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND du --apparent-size --summarize --exclude=DEBIAN --block-size=1024 ${folder}
    OUTPUT_VARIABLE size COMMAND_ERROR_IS_FATAL ANY)
  string(REGEX MATCH "^[0-9]+" size ${size})
  file(READ ${folder}/DEBIAN/control control)
  string(REGEX REPLACE "Installed-Size: [0-9]+" "Installed-Size: ${size}" control "${control}")
  file(WRITE ${folder}/DEBIAN/control "${control}")
  execute_process(COMMAND dpkg-deb --root-owner-group -Zxz -z1 --build ${folder} ${package}
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
endforeach()
