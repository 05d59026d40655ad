; Installer of the effect module for 64-bit Windows, built with makensis by
; packaging/CMakeLists.txt, which defines on the command line:
;   PRODUCT       product and effect name          PUBLISHER  publisher
;   CATEGORY      effect category: the folder the module goes into
;   VERSION       dotted version                   VERSION_QUAD  version with four numbers
;   MODULE_FILE   the shipped module (signed)      MODULE_NAME   its file name when installed
;   LICENSE_FILE  licence shown before installing  COPYRIGHT     its copyright line
;   PRODUCT_PAGE  the publisher's page of the product
;   INSTALL_ICON, UNINSTALL_ICON  icons of the installer and the uninstaller
;   AE_VERSIONS   After Effects versions searched, newest first, separated by blanks
;   MSI_KEY       registry key of an installation by the MSI package
;   UNINSTALL_KEY registry key of this installer's entry in Settings > Apps
;   SIGN          packaging/sign.sh                SIGN_TOOL  osslsigncode
;   SIGN_EPOCH_FILE  file with the signing time (seconds); sign.sh takes the key from the environment
;   PYTHON3       Python with which describe_uninstaller.py gives the uninstaller its description
;   OUTFILE       the installer to write
; and may define STUB, the NSIS stub to build on (default amd64-unicode).
;
; The uninstaller is signed before it is packed into the installer, the
; installer once it is written; a failed signature fails the build.
;
; The module goes into "<plug-in folder>\<category>". The plug-in folder is the
; one that installed versions of After Effects record as CommonPluginInstallPath
; (the newest version of AE_VERSIONS that records one, the MSI package's rule
; too), else the common MediaCore folder that every version searches. An
; update keeps the folder of the installed version. /D=<folder> on the
; command line overrides all of them.
;
; The MSI package installs the same module: this installer refuses to run
; while that is installed, and the MSI refuses while this one is. It refuses
; to replace a newer version too.
;
; A module that a running After Effects holds cannot be replaced or removed:
; the new one waits beside it and replaces it, or the old one is removed, when
; Windows restarts; the installer and the uninstaller then exit with 3010.
;
; /UNINSTALL removes the installed module, the uninstaller and the
; registration, and waits until it is done: the uninstaller itself returns
; before its copy in the temporary folder has finished.
;
; Reproducible: no build date is embedded (no !define /date, SetDateSave off),
; so the same inputs give the same installer bytes.

!ifndef PRODUCT | PUBLISHER | CATEGORY | VERSION | VERSION_QUAD | MODULE_FILE | MODULE_NAME | LICENSE_FILE | COPYRIGHT | OUTFILE
  !error "packaging/CMakeLists.txt defines the installer's names and files"
!endif
!ifndef AE_VERSIONS | MSI_KEY | UNINSTALL_KEY
  !error "packaging/CMakeLists.txt defines where the module goes"
!endif
!ifndef PRODUCT_PAGE | SIGN | SIGN_TOOL | SIGN_EPOCH_FILE
  !error "packaging/CMakeLists.txt defines how the installer is signed"
!endif
!ifndef INSTALL_ICON | UNINSTALL_ICON | PYTHON3
  !error "packaging/CMakeLists.txt names the icons and Python"
!endif
!define SIGN_WITH '"${SIGN}" "${SIGN_TOOL}" "${SIGN_EPOCH_FILE}"'
; The uninstaller carries the installer's version information: it gets a
; description of its own, then its signature.
!define UNINSTALLER_DESCRIPTION "${PRODUCT} uninstaller"
; Longer than the uninstaller's: describe_uninstaller.py writes that one in its place.
!define INSTALLER_DESCRIPTION "${PRODUCT} ${VERSION} installer"
!uninstfinalize '"${PYTHON3}" "${__FILEDIR__}/describe_uninstaller.py" "%1" "${UNINSTALLER_DESCRIPTION}"' = 0
!uninstfinalize '${SIGN_WITH} "${UNINSTALLER_DESCRIPTION}" "${PRODUCT_PAGE}" "%1"' = 0
!finalize '${SIGN_WITH} "${INSTALLER_DESCRIPTION}" "${PRODUCT_PAGE}" "%1"' = 0

Unicode true
; The module is a 64-bit library, so the installer is a 64-bit program too:
; registry and folder names are then those of the 64-bit host. The x86 stub
; only serves the test of the refusal on 32-bit Windows.
!ifndef STUB
  !define STUB amd64-unicode
!endif
Target ${STUB}
SetCompressor /SOLID lzma
SetDateSave off
RequestExecutionLevel admin
ManifestDPIAware true

!include LogicLib.nsh
!include x64.nsh
!include WordFunc.nsh
!include FileFunc.nsh

!define AE_KEY "SOFTWARE\Adobe\After Effects"
!define AE_PLUGIN_VALUE "CommonPluginInstallPath"
!define FALLBACK_PLUGIN_FOLDER "$COMMONFILES64\Adobe\Common\Plug-ins\7.0\MediaCore"
!define UNINSTALLER "Uninstall ${PRODUCT}.exe"
; Exit codes of an installer that refuses to run (silent installs report them).
!define EXIT_UNSUPPORTED 2
!define EXIT_MSI_INSTALLED 3
!define EXIT_NEWER_INSTALLED 4
; Done, but a file in use is replaced or removed when Windows restarts (as msiexec).
!define EXIT_RESTART_NEEDED 3010
; The module's name while it waits for a restart to replace the one in use.
!define PENDING_MODULE "${MODULE_NAME}.new"

Name "${PRODUCT} ${VERSION}"
OutFile "${OUTFILE}"
BrandingText "${PUBLISHER}"
ShowInstDetails show
ShowUninstDetails show
LicenseData "${LICENSE_FILE}"
Icon "${INSTALL_ICON}"
UninstallIcon "${UNINSTALL_ICON}"
DirText "Setup installs the ${PRODUCT} effect into this After Effects plug-in folder."

VIProductVersion "${VERSION_QUAD}"
VIAddVersionKey /LANG=1033 "ProductName" "${PRODUCT}"
VIAddVersionKey /LANG=1033 "CompanyName" "${PUBLISHER}"
VIAddVersionKey /LANG=1033 "FileDescription" "${INSTALLER_DESCRIPTION}"
VIAddVersionKey /LANG=1033 "FileVersion" "${VERSION}"
VIAddVersionKey /LANG=1033 "ProductVersion" "${VERSION}"
VIAddVersionKey /LANG=1033 "LegalCopyright" "${COPYRIGHT}"

Page license
Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles

; The plug-in folder of the newest After Effects of AE_VERSIONS that records
; one, else the common MediaCore folder. Leaves the folder in $R0.
Function FindPluginFolder
  StrCpy $R0 ""   ; chosen folder
  StrCpy $R2 1    ; word of AE_VERSIONS
  ${Do}
    ClearErrors
    ${WordFind} "${AE_VERSIONS}" " " "E+$R2" $R3
    ${If} ${Errors}
      ${Break}
    ${EndIf}
    ReadRegStr $R0 HKLM "${AE_KEY}\$R3" "${AE_PLUGIN_VALUE}"
    ${If} $R0 != ""
      ${Break}
    ${EndIf}
    IntOp $R2 $R2 + 1
  ${Loop}
  ${If} $R0 == ""
    StrCpy $R0 "${FALLBACK_PLUGIN_FOLDER}"
  ${EndIf}
  ; The recorded value usually ends with a backslash.
  StrCpy $R5 $R0 "" -1
  ${If} $R5 == "\"
    StrCpy $R0 $R0 -1
  ${EndIf}
FunctionEnd

; Size of the file $R0 in whole kilobytes (rounded up), added to $R9.
Function AddFileKilobytes
  ClearErrors
  FileOpen $R1 $R0 r
  ${IfNot} ${Errors}
    FileSeek $R1 0 END $R2
    FileClose $R1
    IntOp $R2 $R2 + 1023
    IntOp $R2 $R2 / 1024
    IntOp $R9 $R9 + $R2
  ${EndIf}
FunctionEnd

; Takes away the module, the uninstaller and the registration of an
; installation in FOLDER; other modules of the suite in the folder stay. A file
; in use goes when Windows restarts (the reboot flag is then set).
!macro RemoveInstallation FOLDER
  ; A replacement still waiting for a restart must not come back after it.
  Delete /REBOOTOK "${FOLDER}\${PENDING_MODULE}"
  Delete /REBOOTOK "${FOLDER}\${MODULE_NAME}"
  Delete /REBOOTOK "${FOLDER}\${UNINSTALLER}"
  ${If} ${RebootFlag}
    RMDir /REBOOTOK "${FOLDER}"
  ${Else}
    RMDir "${FOLDER}"
  ${EndIf}
  DeleteRegKey HKLM "${UNINSTALL_KEY}"
!macroend

; A restart finishes the job: say so, and exit with 3010.
!macro ReportRestart
  ${If} ${RebootFlag}
    MessageBox MB_OK|MB_ICONINFORMATION "A file in use is replaced or removed when Windows restarts. Restart Windows to finish." /SD IDOK
    SetErrorLevel ${EXIT_RESTART_NEEDED}
  ${EndIf}
!macroend

; /UNINSTALL on the command line: removes the registered installation, then quits.
Function UninstallIfAsked
  ${GetParameters} $R0
  ClearErrors
  ${GetOptions} $R0 "/UNINSTALL" $R1
  ${If} ${Errors}
    Return
  ${EndIf}
  ReadRegStr $R2 HKLM "${UNINSTALL_KEY}" "InstallLocation"
  ${If} $R2 != ""
    !insertmacro RemoveInstallation "$R2"
  ${EndIf}
  SetErrorLevel 0
  !insertmacro ReportRestart
  Quit
FunctionEnd

; Refuses to replace a newer installed version.
Function RefuseDowngrade
  ReadRegStr $R0 HKLM "${UNINSTALL_KEY}" "DisplayVersion"
  ${If} $R0 == ""
    Return
  ${EndIf}
  ${VersionCompare} $R0 "${VERSION}" $R1
  ${If} $R1 == 1
    MessageBox MB_OK|MB_ICONSTOP "A newer version of ${PRODUCT} ($R0) is already installed; nothing was changed." /SD IDOK
    SetErrorLevel ${EXIT_NEWER_INSTALLED}
    Abort
  ${EndIf}
FunctionEnd

Function .onInit
  ; A 64-bit installer does not even start on 32-bit Windows; this check is
  ; what refuses when the script is built for the x86 stub.
  ${IfNot} ${RunningX64}
    MessageBox MB_OK|MB_ICONSTOP "${PRODUCT} is an After Effects plug-in for 64-bit Windows. This computer runs 32-bit Windows, so nothing was installed." /SD IDOK
    SetErrorLevel ${EXIT_UNSUPPORTED}
    Abort
  ${EndIf}
  SetRegView 64
  Call UninstallIfAsked
  ReadRegStr $0 HKLM "${MSI_KEY}" "InstallFolder"
  ${If} $0 != ""
    MessageBox MB_OK|MB_ICONSTOP "${PRODUCT} is installed from its MSI package, in $0. Uninstall it in Settings > Apps first; nothing was installed." /SD IDOK
    SetErrorLevel ${EXIT_MSI_INSTALLED}
    Abort
  ${EndIf}
  Call RefuseDowngrade
  ${If} $INSTDIR == ""   ; no /D= on the command line: where it is, else where the host looks
    ReadRegStr $INSTDIR HKLM "${UNINSTALL_KEY}" "InstallLocation"
  ${EndIf}
  ${If} $INSTDIR == ""
    Call FindPluginFolder
    StrCpy $INSTDIR "$R0\${CATEGORY}"
  ${EndIf}
FunctionEnd

; Puts the module into $INSTDIR. One that the host holds cannot be replaced:
; the new one then waits beside it until Windows restarts.
Function InstallModule
  SetOutPath "$INSTDIR"
  SetOverwrite on
  File "/oname=${PENDING_MODULE}" "${MODULE_FILE}"
  ClearErrors
  Delete "$INSTDIR\${MODULE_NAME}"
  Rename /REBOOTOK "$INSTDIR\${PENDING_MODULE}" "$INSTDIR\${MODULE_NAME}"
FunctionEnd

Section "${PRODUCT}" SecModule
  SectionIn RO
  SetRegView 64

  ; An earlier install in another plug-in folder would make the host find the
  ; effect twice: take that copy away first. Other modules of the suite stay.
  ReadRegStr $0 HKLM "${UNINSTALL_KEY}" "InstallLocation"
  ${If} $0 != ""
  ${AndIf} $0 != $INSTDIR
    !insertmacro RemoveInstallation "$0"
  ${EndIf}

  Call InstallModule
  WriteUninstaller "$INSTDIR\${UNINSTALLER}"

  StrCpy $R9 0
  StrCpy $R0 "$INSTDIR\${MODULE_NAME}"
  Call AddFileKilobytes
  StrCpy $R0 "$INSTDIR\${UNINSTALLER}"
  Call AddFileKilobytes

  ; The MSI package's entry holds the same values.
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${PRODUCT}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "${PUBLISHER}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\${UNINSTALLER}"'
  WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\${UNINSTALLER}" /S'
  WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\${UNINSTALLER},0"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "URLInfoAbout" "${PRODUCT_PAGE}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "HelpLink" "${PRODUCT_PAGE}"
  WriteRegStr HKLM "${UNINSTALL_KEY}" "Comments" "${COPYRIGHT}"
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "EstimatedSize" $R9
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
  WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1
SectionEnd

Function .onInstSuccess
  !insertmacro ReportRestart
FunctionEnd

Function un.onInit
  SetRegView 64
FunctionEnd

Section "Uninstall"
  ; The category folder is shared with the suite's other modules.
  !insertmacro RemoveInstallation "$INSTDIR"
SectionEnd

Function un.onUninstSuccess
  !insertmacro ReportRestart
FunctionEnd
