# Warnings and sanitizers apply to everything this project compiles.
add_compile_options(-Wall -Wextra -Wshadow -Wnon-virtual-dtor -Wcast-align
                    -Wunused -Woverloaded-virtual -Wformat=2)
if(FPT_WARNINGS_AS_ERRORS)
  add_compile_options(-Werror)
endif()

if(FPT_SANITIZE)
  set(FPT_SANITIZER_FLAGS -fsanitize=address,undefined -fno-sanitize-recover=undefined
                          -fno-omit-frame-pointer)
  add_compile_options(${FPT_SANITIZER_FLAGS})
  add_link_options(${FPT_SANITIZER_FLAGS})
endif()
