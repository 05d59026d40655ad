# The module's identity: the one place where its names, version and out-flags
# are written down. The property list resource, the version resource and the
# code of global setup are all generated from these values.
set(CINEBAR_EFFECT_NAME "Cinebar")
set(CINEBAR_CATEGORY "TW Lenscraft Suite")
set(CINEBAR_MATCH_NAME "ADBE KS Cinebar")
set(CINEBAR_ENTRY_POINT "EntryPointFunc")
set(CINEBAR_MODULE_STEM "KSCinebar")
set(CINEBAR_VERSION_MAJOR 1)
set(CINEBAR_VERSION_MINOR 1)
set(CINEBAR_VERSION_BUGFIX 12)
set(CINEBAR_VERSION_STAGE 3)   # release
set(CINEBAR_VERSION_BUILD 0)
set(CINEBAR_OUT_FLAGS 0x02008401)
set(CINEBAR_OUT_FLAGS2 0x00000000)
set(CINEBAR_API_VERSION_MAJOR 13)  # effect API version the module is written against
set(CINEBAR_API_VERSION_MINOR 0)
set(CINEBAR_PUBLISHER "Tarnwick")
set(CINEBAR_PRODUCT_PAGE "https://www.tarnwick.example/lenscraft/cadre")
