# Included where programs and libraries are built that other people's processes or root will run:
# what turns a mistake into an end of the process rather than into somebody's way in.
set(optimised $<OR:$<CONFIG:Release>,$<CONFIG:RelWithDebInfo>,$<CONFIG:MinSizeRel>>)
add_compile_options(-fstack-protector-strong -fstack-clash-protection -fcf-protection)
if(NOT LUMSAR_SANITIZE)
  # Distributions' own flags may ask for less. Without optimisation it does nothing but warn.
  add_compile_options("$<${optimised}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
endif()
# Clang 14 makes no PIE by itself, and "-pie" would take "-static-pie" apart.
set(is_program $<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>)
set(is_static $<BOOL:$<TARGET_PROPERTY:LUMSAR_STATIC>>)
add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack
  $<$<AND:${is_program},$<NOT:${is_static}>>:-pie>)
