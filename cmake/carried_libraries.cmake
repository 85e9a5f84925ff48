# The libraries that an executable carries in itself, so that it needs none beside the system's and is
# built for several processors at once: a package manager's libraries are for one processor, and the
# hardened runtime refuses them. spdlog, fmt and nlohmann-json are taken as headers from
# QLX_LIBRARY_HEADERS; hidapi is compiled from its source, which QLX_HIDAPI_SOURCE names.
set(QLX_LIBRARY_HEADERS "" CACHE PATH
    "Where the folders spdlog, fmt and nlohmann stand (empty: the usual places)")
set(QLX_HIDAPI_SOURCE "" CACHE PATH "hidapi's source, as its maker hands it out")

# Links, since other headers that stand beside these must not be found: off a Mac, the host's own.
foreach(library IN ITEMS spdlog fmt nlohmann)
  if(QLX_LIBRARY_HEADERS)
    set(folders "${QLX_LIBRARY_HEADERS}")
  else()
    set(folders /usr/local/include /opt/homebrew/include /usr/include)
  endif()
  file(MAKE_DIRECTORY "${PROJECT_BINARY_DIR}/libraries")
  file(REMOVE "${PROJECT_BINARY_DIR}/libraries/${library}")
  foreach(folder IN LISTS folders)
    if(IS_DIRECTORY "${folder}/${library}")
      file(CREATE_LINK "${folder}/${library}" "${PROJECT_BINARY_DIR}/libraries/${library}" SYMBOLIC)
      break()
    endif()
  endforeach()
  if(NOT EXISTS "${PROJECT_BINARY_DIR}/libraries/${library}")
    message(FATAL_ERROR "there is no folder ${library} in ${folders}; QLX_LIBRARY_HEADERS names "
                        "the folder that has the headers of spdlog, fmt and nlohmann-json")
  endif()
endforeach()
if(NOT EXISTS "${QLX_HIDAPI_SOURCE}/mac/hid.c")
  message(FATAL_ERROR "there is no mac/hid.c in '${QLX_HIDAPI_SOURCE}'; QLX_HIDAPI_SOURCE names the "
                      "folder that has hidapi's source")
endif()

add_library(spdlog::spdlog INTERFACE IMPORTED GLOBAL)
target_include_directories(spdlog::spdlog INTERFACE "${PROJECT_BINARY_DIR}/libraries")
target_compile_definitions(spdlog::spdlog INTERFACE SPDLOG_FMT_EXTERNAL FMT_HEADER_ONLY)

add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED GLOBAL)
target_include_directories(nlohmann_json::nlohmann_json INTERFACE "${PROJECT_BINARY_DIR}/libraries")

enable_language(C)
add_library(carried_hidapi STATIC "${QLX_HIDAPI_SOURCE}/mac/hid.c")
target_include_directories(carried_hidapi SYSTEM PUBLIC "${QLX_HIDAPI_SOURCE}/hidapi")
target_compile_options(carried_hidapi PRIVATE "${hardening}")
target_link_libraries(carried_hidapi PUBLIC "-framework CoreFoundation" "-framework IOKit")
add_library(hidapi::hidapi ALIAS carried_hidapi)
