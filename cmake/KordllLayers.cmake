# The layers of the library, lowest first, and what each may include.
#
# This is the one place where the architecture is written down. Every folder
# kordll/<layer>/ is one layer; a file in it may include headers of its own
# layer and of the layers listed as its dependencies, and nothing else (in
# particular not the umbrella header kordll/kordll.h, which is for
# applications). The build checks the includes against this map
# (cmake/CheckLayers.cmake) before it compiles the library.
#
#   platform   the operating system: files, clock, time zone, threads, profile, host
#   core       text and memory below the records: item pools, library lifetime,
#              the date text that stored dates are read and written in
#   record     field items, templates, records, links, the two file stores
#   toolkit    HTML, XML, print templates, date presentation, paths
#   schema     the catalogue of record types
#   filter     content filters
#   control    controllers, the global registry, panels, tree, trash, users
#   periodic   the scheduler
#   talk       talks, errors, progress
#   transfer   file requests, the download list (a finished download fires a talk)
#   settings   preferences and skins
set(KORDLL_LAYERS platform core record toolkit schema filter control periodic talk transfer settings)

set(KORDLL_LAYER_DEPS_platform "")
set(KORDLL_LAYER_DEPS_core     platform)
set(KORDLL_LAYER_DEPS_record   core)
set(KORDLL_LAYER_DEPS_toolkit  record)
set(KORDLL_LAYER_DEPS_schema   toolkit)
set(KORDLL_LAYER_DEPS_filter   schema)
set(KORDLL_LAYER_DEPS_control  filter)
set(KORDLL_LAYER_DEPS_periodic control)
set(KORDLL_LAYER_DEPS_talk     periodic)
set(KORDLL_LAYER_DEPS_transfer talk)
set(KORDLL_LAYER_DEPS_settings transfer)

# KORDLL_LAYER_ALLOWED_<layer>: the layer itself and everything below it.
foreach(layer IN LISTS KORDLL_LAYERS)
  set(allowed ${layer})
  foreach(dep IN LISTS KORDLL_LAYER_DEPS_${layer})
    list(APPEND allowed ${KORDLL_LAYER_ALLOWED_${dep}})
  endforeach()
  list(REMOVE_DUPLICATES allowed)
  set(KORDLL_LAYER_ALLOWED_${layer} ${allowed})
endforeach()
