add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(VUKO_WERROR)
  add_compile_options(-Werror)
endif()
