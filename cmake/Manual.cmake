# The manual pages and the completions, where manual readers and shells look for them.
set(pages ${PROJECT_SOURCE_DIR}/Documentation/man)
set(completions ${PROJECT_SOURCE_DIR}/Completions)
install(FILES ${pages}/corvane.1 ${pages}/corvane-platform.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT Program)
install(FILES ${completions}/corvane DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT Program)
install(FILES ${completions}/_corvane DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions COMPONENT Program)
install(FILES ${completions}/corvane.fish DESTINATION ${CMAKE_INSTALL_DATADIR}/fish/vendor_completions.d COMPONENT Program)
