# cmake -DFROM=FOLDER -DTO=FOLDER -P take-built.cmake: puts what was built elsewhere where the installation looks for it,
# without the search path by which it finds its parts in the folder that it was built in.
file(GLOB files RELATIVE ${FROM} ${FROM}/bin/vukocrond ${FROM}/bin/vukocronctl
  ${FROM}/lib/libvukocrond.so* ${FROM}/lib/libvukoplatform.so*)
foreach(file ${files})
  cmake_path(GET file PARENT_PATH folder)
  file(COPY ${FROM}/${file} DESTINATION ${TO}/${folder})
  if(NOT IS_SYMLINK ${TO}/${file})
    file(RPATH_REMOVE FILE ${TO}/${file})
  endif()
endforeach()
