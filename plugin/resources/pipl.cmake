# Builds the bytes of the "PiPL" property list (resource type "PiPL", id 16000)
# from the module's identity. The host reads this list before it calls the
# module, so every length and padding byte matters:
#
#   header      u16 format version 1, u32 reserved 0, u32 property count
#   property    vendor code and key (four characters each, stored reversed),
#               u32 id 0, u32 data length, data padded with zeros to 4 bytes
#
# Text values (length-prefixed strings, the zero-terminated entry name) count
# their padding in the length field; the two-byte 'eINF' value does not.
# All numbers are little-endian. Bytes are handled as lists of decimal values.

# Appends the little-endian bytes of a 16- or 32-bit value to list `out`.
function(_cinebar_pipl_le out width value)
  math(EXPR v "${value}")
  if(v LESS 0)
    math(EXPR v "${v} & 0xFFFFFFFF")
  endif()
  set(bytes ${${out}})
  math(EXPR last "${width} - 1")
  foreach(i RANGE ${last})
    math(EXPR b "(${v} >> (8 * ${i})) & 0xFF")
    list(APPEND bytes ${b})
  endforeach()
  set(${out} ${bytes} PARENT_SCOPE)
endfunction()

# Appends the bytes of an ASCII string (no terminator) to list `out`.
function(_cinebar_pipl_chars out text)
  set(bytes ${${out}})
  string(HEX "${text}" hex)
  string(LENGTH "${hex}" hex_len)
  if(hex_len GREATER 0)
    math(EXPR last "${hex_len} - 2")
    foreach(i RANGE 0 ${last} 2)
      string(SUBSTRING "${hex}" ${i} 2 pair)
      math(EXPR b "0x${pair}")
      list(APPEND bytes ${b})
    endforeach()
  endif()
  set(${out} ${bytes} PARENT_SCOPE)
endfunction()

# Appends a four-character code stored in reverse order ('kind' -> "dnik").
function(_cinebar_pipl_code out code)
  string(LENGTH "${code}" n)
  if(NOT n EQUAL 4)
    message(FATAL_ERROR "PiPL: four-character code '${code}' has ${n} characters")
  endif()
  set(reversed "")
  foreach(i 3 2 1 0)
    string(SUBSTRING "${code}" ${i} 1 c)
    string(APPEND reversed "${c}")
  endforeach()
  set(bytes ${${out}})
  _cinebar_pipl_chars(bytes "${reversed}")
  set(${out} ${bytes} PARENT_SCOPE)
endfunction()

# Names go into the host's menus as single bytes: printable ASCII only.
function(_cinebar_pipl_check_text what text max_len)
  string(LENGTH "${text}" n)
  if(n EQUAL 0 OR n GREATER ${max_len})
    message(FATAL_ERROR "PiPL: ${what} \"${text}\" must have 1 to ${max_len} characters, not ${n}")
  endif()
  if(NOT text MATCHES "^[ -~]+$")
    message(FATAL_ERROR "PiPL: ${what} \"${text}\" must be printable ASCII")
  endif()
endfunction()

# Appends one property: vendor '8BIM', key, id 0, the length field and the
# data followed by zero bytes up to a multiple of 4. `counted` is the value of
# the length field, which may or may not include the padding.
function(_cinebar_pipl_property out key counted data)
  set(bytes ${${out}})
  _cinebar_pipl_code(bytes "8BIM")
  _cinebar_pipl_code(bytes "${key}")
  _cinebar_pipl_le(bytes 4 0)
  _cinebar_pipl_le(bytes 4 ${counted})
  list(LENGTH data n)
  list(APPEND bytes ${data})
  math(EXPR pad "(4 - ${n} % 4) % 4")
  if(pad GREATER 0)
    foreach(i RANGE 1 ${pad})
      list(APPEND bytes 0)
    endforeach()
  endif()
  set(${out} ${bytes} PARENT_SCOPE)
endfunction()

# Rounds `n` up to a multiple of 4.
function(_cinebar_pipl_round4 out n)
  math(EXPR r "(${n} + 3) / 4 * 4")
  set(${out} ${r} PARENT_SCOPE)
endfunction()

# A property holding a length-prefixed string; the length counts the padding.
function(_cinebar_pipl_pstring_property out key what text)
  _cinebar_pipl_check_text("${what}" "${text}" 255)
  string(LENGTH "${text}" n)
  set(data ${n})
  _cinebar_pipl_chars(data "${text}")
  math(EXPR with_prefix "${n} + 1")
  _cinebar_pipl_round4(counted ${with_prefix})
  set(bytes ${${out}})
  _cinebar_pipl_property(bytes "${key}" ${counted} "${data}")
  set(${out} ${bytes} PARENT_SCOPE)
endfunction()

# Sets `out` to the list of the property list's bytes (decimal values), built
# from the CINEBAR_* identity variables.
function(cinebar_pipl_bytes out)
  foreach(var CINEBAR_EFFECT_NAME CINEBAR_CATEGORY CINEBAR_MATCH_NAME CINEBAR_ENTRY_POINT CINEBAR_PACKED_VERSION
              CINEBAR_OUT_FLAGS CINEBAR_OUT_FLAGS2 CINEBAR_API_VERSION_MAJOR CINEBAR_API_VERSION_MINOR)
    if(NOT DEFINED ${var})
      message(FATAL_ERROR "PiPL: ${var} is not set (cmake/identity.cmake)")
    endif()
  endforeach()
  foreach(var CINEBAR_OUT_FLAGS CINEBAR_OUT_FLAGS2)
    if(NOT ${var} MATCHES "^(0x[0-9A-Fa-f]+|[0-9]+)$")
      message(FATAL_ERROR "PiPL: ${var} '${${var}}' is not a number")
    endif()
  endforeach()
  set(version ${CINEBAR_PACKED_VERSION})  # packed once, in cmake/identity.cmake

  set(props "")
  # 1: plug-in kind, an After Effects effect ('eFKT', stored reversed).
  set(data "")
  _cinebar_pipl_code(data "eFKT")
  _cinebar_pipl_property(props "kind" 4 "${data}")
  # 2, 3: name and category, length-prefixed.
  _cinebar_pipl_pstring_property(props "name" "effect name" "${CINEBAR_EFFECT_NAME}")
  _cinebar_pipl_pstring_property(props "catg" "category" "${CINEBAR_CATEGORY}")
  # 4: entry function for 64-bit Windows, zero-terminated; length counts padding.
  _cinebar_pipl_check_text("entry point" "${CINEBAR_ENTRY_POINT}" 250)
  set(data "")
  _cinebar_pipl_chars(data "${CINEBAR_ENTRY_POINT}")
  list(APPEND data 0)
  list(LENGTH data n)
  _cinebar_pipl_round4(counted ${n})
  _cinebar_pipl_property(props "8664" ${counted} "${data}")
  # 5: property list version 2.0; 6: effect API version; 7: module version.
  set(data "")
  _cinebar_pipl_le(data 2 2)
  _cinebar_pipl_le(data 2 0)
  _cinebar_pipl_property(props "ePVR" 4 "${data}")
  set(data "")
  _cinebar_pipl_le(data 2 ${CINEBAR_API_VERSION_MAJOR})
  _cinebar_pipl_le(data 2 ${CINEBAR_API_VERSION_MINOR})
  _cinebar_pipl_property(props "eSVR" 4 "${data}")
  set(data "")
  _cinebar_pipl_le(data 4 ${version})
  _cinebar_pipl_property(props "eVER" 4 "${data}")
  # 8: info flags, two bytes; the two padding bytes are not counted.
  set(data "")
  _cinebar_pipl_le(data 2 0)
  _cinebar_pipl_property(props "eINF" 2 "${data}")
  # 9, 10: the out-flag words global setup also reports.
  set(data "")
  _cinebar_pipl_le(data 4 ${CINEBAR_OUT_FLAGS})
  _cinebar_pipl_property(props "eGLO" 4 "${data}")
  set(data "")
  _cinebar_pipl_le(data 4 ${CINEBAR_OUT_FLAGS2})
  _cinebar_pipl_property(props "eGL2" 4 "${data}")
  # 11: match name, the effect's identity in saved projects.
  _cinebar_pipl_pstring_property(props "eMNA" "match name" "${CINEBAR_MATCH_NAME}")
  # 12, 13: reserved host information, the same key twice: 8, then 0.
  set(data "")
  _cinebar_pipl_le(data 4 8)
  _cinebar_pipl_property(props "aeFL" 4 "${data}")
  set(data "")
  _cinebar_pipl_le(data 4 0)
  _cinebar_pipl_property(props "aeFL" 4 "${data}")

  set(bytes "")
  _cinebar_pipl_le(bytes 2 1)
  _cinebar_pipl_le(bytes 4 0)
  _cinebar_pipl_le(bytes 4 13)
  list(APPEND bytes ${props})
  set(${out} ${bytes} PARENT_SCOPE)
endfunction()
