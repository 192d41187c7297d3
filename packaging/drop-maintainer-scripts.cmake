# CPack has ldconfig called for any module one folder below /usr/lib. Zarvo's is no library that others link: without
# these two scripts, nothing of the package is run when it is installed or removed.
foreach(package ${CPACK_PACKAGE_FILES})
    set(folder ${package}.contents)
    file(REMOVE_RECURSE ${folder})
    execute_process(COMMAND dpkg-deb --raw-extract ${package} ${folder} COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE ${folder}/DEBIAN/postinst ${folder}/DEBIAN/postrm)
    execute_process(COMMAND dpkg-deb --root-owner-group --build ${folder} ${package}
        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE ${folder})
endforeach()
