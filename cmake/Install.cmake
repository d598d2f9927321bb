# What an installation has, in two components: the program, and the service. packaging/debian makes a package of each.
include(GNUInstallDirs)
set(identifier com.kelthorne.Vellumline)
set(packaging ${CMAKE_SOURCE_DIR}/packaging)
set(generated ${CMAKE_BINARY_DIR}/packaging)
set(user_units lib/systemd/user)
set(bash_completions ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)

set(VELLUMLINE_EXEC ${CMAKE_INSTALL_FULL_BINDIR}/vellumline)
# The socket listens where the program expects the service; a program for a service elsewhere has no use for it, but whoever
# installs the service then may have.
set(VELLUMLINE_SERVICE_ADDRESS 127.0.0.1:8642)
if(VELLUMLINE_BACKEND_URL MATCHES "^http://(127[.][0-9.]+:[0-9]+)$")
  set(VELLUMLINE_SERVICE_ADDRESS ${CMAKE_MATCH_1})
endif()
foreach(file ${identifier}.desktop ${identifier}.service ${identifier}.metainfo.xml systemd/vellumline.service
        systemd/vellumline-service.service systemd/vellumline-service.socket)
  configure_file(${packaging}/${file}.in ${generated}/${file} @ONLY)
endforeach()

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME program)
install(TARGETS vellumline DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS vellumline-guardian DESTINATION ${CMAKE_INSTALL_LIBEXECDIR}/vellumline)
install(FILES ${generated}/${identifier}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
install(FILES ${generated}/${identifier}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${generated}/${identifier}.service DESTINATION ${CMAKE_INSTALL_DATADIR}/dbus-1/services)
install(FILES ${packaging}/icons/${identifier}.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
install(FILES ${packaging}/icons/${identifier}-symbolic.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/symbolic/apps)
install(FILES ${generated}/systemd/vellumline.service DESTINATION ${user_units})
install(FILES ${packaging}/man/vellumline.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${packaging}/completions/vellumline.bash DESTINATION ${bash_completions} RENAME vellumline)
install(FILES ${packaging}/completions/_vellumline DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)

set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME service)
install(TARGETS vellumline-service vellumline-correct DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY VellumlineService/Correction/models/ DESTINATION ${CMAKE_INSTALL_DATADIR}/vellumline/models
        FILES_MATCHING PATTERN *.model)
install(FILES ${generated}/systemd/vellumline-service.service ${generated}/systemd/vellumline-service.socket
        DESTINATION ${user_units})
install(FILES ${packaging}/man/vellumline-service.1 ${packaging}/man/vellumline-correct.1
        DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
foreach(program vellumline-service vellumline-correct)
  install(FILES ${packaging}/completions/vellumline-service.bash DESTINATION ${bash_completions} RENAME ${program})
endforeach()
