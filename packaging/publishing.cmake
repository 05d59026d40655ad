# Publishing the release: included by packaging/CMakeLists.txt.

# cinebar_add_publishing()
# Adds the target cinebar_release, which replaces dist/ by the staged module,
# its symbols, the installer and the MSI package, verified, with the zip
# bundle, SHA256SUMS and its signature (publish.sh), and
# cinebar_shipped_module, which stands for the module in dist/. Reads the
# guide and the licence (guide, license_text) from the caller.
function(cinebar_add_publishing)
  set(staged "${CINEBAR_STAGED_MODULE}" "${CINEBAR_STAGED_MODULE}.debug"
             "${CINEBAR_STAGE_DIR}/${CINEBAR_INSTALLER_NAME}" "${CINEBAR_STAGE_DIR}/${CINEBAR_RELEASE_NAME}.msi")
  set(published "${CINEBAR_SHIPPED_MODULE}" "${CINEBAR_MODULE_SYMBOLS}" "${CINEBAR_INSTALLER}" "${CINEBAR_MSI}"
                "${CINEBAR_BUNDLE}" "${CINEBAR_SUMS}" "${CINEBAR_SUMS}.sig")
  add_custom_command(
    OUTPUT ${published}
    COMMAND "${CMAKE_COMMAND}" -E env ${CINEBAR_SIGN_ENV} "CINEBAR_OSSLSIGNCODE=${CINEBAR_OSSLSIGNCODE}" "CINEBAR_ZIP=${CINEBAR_ZIP}"
            "${CMAKE_CURRENT_SOURCE_DIR}/publish.sh" "${CINEBAR_DIST_DIR}" "${CINEBAR_RELEASE_NAME}"
            "${CINEBAR_RELEASE_EPOCH_FILE}" "${guide}" "${license_text}" ${staged}
    DEPENDS ${staged} "${guide}" "${license_text}" "${CINEBAR_RELEASE_EPOCH_FILE}" cinebar_build_date
            publish.sh sign_sums.sh ${CINEBAR_SIGN_KEY_DEPENDS}
    COMMENT "Publishing the release to ${CINEBAR_DIST_DIR}"
    VERBATIM)
  # One target owns the rule, so that it never runs twice at once.
  add_custom_target(cinebar_release ALL DEPENDS ${published})
  add_custom_target(cinebar_shipped_module ALL)
  add_dependencies(cinebar_shipped_module cinebar_release)
endfunction()
