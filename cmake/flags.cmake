# Flags of every target. Warnings are errors, unless a packager with another compiler says otherwise; the sanitizers and the
# hardening are chosen by the presets.
option(SNOOPD6_WERROR "Warnings are errors" ON)
add_compile_options(-Wall -Wextra -Wconversion -Wshadow $<$<BOOL:${SNOOPD6_WERROR}>:-Werror> -fno-strict-aliasing)

if(SNOOPD6_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined)
endif()

if(SNOOPD6_HARDEN)
  add_compile_options(-D_FORTIFY_SOURCE=2 -fstack-protector-strong -fstack-clash-protection -fcf-protection)
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
  set(CMAKE_EXE_LINKER_FLAGS "${CMAKE_EXE_LINKER_FLAGS} -pie")
endif()

if(SNOOPD6_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Plain records and functions: what runs in the daemon neither throws nor asks for types.
set(SNOOPD6_DAEMON_FLAGS -fno-exceptions -fno-rtti)
