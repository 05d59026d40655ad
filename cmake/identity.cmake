# The module's identity: the one place where its names, version and out-flags
# are written down (the project's version included: the top CMakeLists.txt
# reads it from here). The property list resource, the version resource and the
# code of global setup are all generated from these values.
set(CINEBAR_EFFECT_NAME "Cinebar")
set(CINEBAR_PUBLISHER "Tarnwick")
set(CINEBAR_PRODUCT_NAME "Cadre")             # the product's name in the maker's range
set(CINEBAR_FAMILY_NAME "Lenscraft Suite")    # the range it belongs to
set(CINEBAR_DISPLAY_NAME "${CINEBAR_PUBLISHER} ${CINEBAR_PRODUCT_NAME}")
set(CINEBAR_CATEGORY "TW ${CINEBAR_FAMILY_NAME}")
set(CINEBAR_MATCH_NAME "ADBE KS Cinebar")
set(CINEBAR_ENTRY_POINT "EntryPointFunc")
set(CINEBAR_MODULE_STEM "KSCinebar")
set(CINEBAR_RELEASE_VERSION 1.1.12)  # major.minor.bug-fix; the project's version too
set(CINEBAR_VERSION_STAGE 3)   # release
set(CINEBAR_VERSION_BUILD 0)
# Out-flags by the host's names and values. The generated identity header
# checks every value against the host's constant of that name, so a typo here
# fails the build instead of shipping.
set(CINEBAR_OUT_FLAG_LIST
    PF_OutFlag_KEEP_RESOURCE_OPEN=0x1
    PF_OutFlag_PIX_INDEPENDENT=0x400
    PF_OutFlag_CUSTOM_UI=0x8000
    PF_OutFlag_DEEP_COLOR_AWARE=0x2000000)
set(CINEBAR_OUT_FLAG2_LIST)  # none
set(CINEBAR_API_VERSION_MAJOR 13)  # effect API version the module is written against
set(CINEBAR_API_VERSION_MINOR 0)
set(CINEBAR_PRODUCT_PAGE "https://www.tarnwick.example/lenscraft/cadre")

# ---- Derived values: computed here once, used by every consumer.

if(NOT CINEBAR_RELEASE_VERSION MATCHES "^([0-9]+)\\.([0-9]+)\\.([0-9]+)$")
  message(FATAL_ERROR "Version '${CINEBAR_RELEASE_VERSION}' is not major.minor.bug-fix")
endif()
set(CINEBAR_VERSION_MAJOR ${CMAKE_MATCH_1})
set(CINEBAR_VERSION_MINOR ${CMAKE_MATCH_2})
set(CINEBAR_VERSION_BUGFIX ${CMAKE_MATCH_3})

# The version packed as the host packs it: major 3 bits, minor 4, bug-fix 4,
# stage 2, build 9. Values that do not fit are an error, not a wrap.
foreach(part IN ITEMS "MAJOR;7" "MINOR;15" "BUGFIX;15" "STAGE;3" "BUILD;511")
  list(GET part 0 name)
  list(GET part 1 max)
  set(value "${CINEBAR_VERSION_${name}}")
  if(NOT value MATCHES "^[0-9]+$" OR value GREATER max)
    message(FATAL_ERROR "Version ${name} '${value}' must be a number from 0 to ${max}")
  endif()
endforeach()
math(EXPR CINEBAR_PACKED_VERSION
     "(${CINEBAR_VERSION_MAJOR} << 19) | (${CINEBAR_VERSION_MINOR} << 15) | (${CINEBAR_VERSION_BUGFIX} << 11) | (${CINEBAR_VERSION_STAGE} << 9) | ${CINEBAR_VERSION_BUILD}"
     OUTPUT_FORMAT HEXADECIMAL)

# CINEBAR_OUT_FLAGS and CINEBAR_OUT_FLAGS2: the OR of each list's values;
# CINEBAR_OUT_FLAG_CHECKS: one static_assert per named flag, for the header.
set(CINEBAR_OUT_FLAG_CHECKS "")
foreach(word OUT_FLAGS OUT_FLAGS2)
  if(word STREQUAL "OUT_FLAGS")
    set(list_var CINEBAR_OUT_FLAG_LIST)
  else()
    set(list_var CINEBAR_OUT_FLAG2_LIST)
  endif()
  set(value 0)
  set(names "")
  foreach(entry IN LISTS ${list_var})
    if(NOT entry MATCHES "^(PF_OutFlag2?_[A-Z0-9_]+)=(0x[0-9A-Fa-f]+)$")
      message(FATAL_ERROR "Out-flag '${entry}' is not NAME=0xVALUE")
    endif()
    math(EXPR value "${value} | ${CMAKE_MATCH_2}")
    string(APPEND CINEBAR_OUT_FLAG_CHECKS
           "static_assert(${CMAKE_MATCH_1} == ${CMAKE_MATCH_2}, \"${CMAKE_MATCH_1} as the host defines it\");\n")
  endforeach()
  math(EXPR CINEBAR_${word} "${value}" OUTPUT_FORMAT HEXADECIMAL)
endforeach()
