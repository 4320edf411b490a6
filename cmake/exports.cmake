# What the libraries show is marked VUKO_API. That alone would also let out what the compiler makes of the templates of
# the C++ library, of Boost and of jsoncpp on the way, which is nobody's interface; the maps keep it in. They carry no
# version names, and nothing here binds the libraries' references to themselves: a program may replace what they call.
foreach(library crond platform)
  set(map ${CMAKE_CURRENT_LIST_DIR}/${library}.map)
  target_link_options(${library} PRIVATE LINKER:--version-script=${map})
  set_property(TARGET ${library} APPEND PROPERTY LINK_DEPENDS ${map})
endforeach()
