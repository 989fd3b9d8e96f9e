# What is built. Each component has an option LUMSAR_BUILD_NAME: AUTO builds it where all that it
# needs is installed and says so in the summary, ON fails and names what is missing, OFF leaves it
# out.

# Sets LUMSAR_NAME to whether the component is built.
# lumsar_component(NAME DESCRIPTION [CONDITION PACKAGE]...), where a condition is a variable or a
# target, and the package brings it.
function(lumsar_component name description)
  set(LUMSAR_${name} FALSE PARENT_SCOPE)
  set(option LUMSAR_BUILD_${name})
  set(${option} AUTO CACHE STRING "Build ${description}: AUTO, ON or OFF")
  set_property(CACHE ${option} PROPERTY STRINGS AUTO ON OFF)
  if(NOT ${option} STREQUAL AUTO AND NOT ${option})
    lumsar_left_out("${description}" "${option} is ${${option}}")
    return()
  endif()
  set(missing)
  while(ARGN)
    list(POP_FRONT ARGN condition package)
    if(NOT TARGET ${condition} AND NOT ${condition})
      list(APPEND missing ${package})
    endif()
  endwhile()
  list(REMOVE_DUPLICATES missing)
  list(JOIN missing " " missing)
  if(NOT missing)
    set(LUMSAR_${name} TRUE PARENT_SCOPE)
    set_property(GLOBAL APPEND PROPERTY LUMSAR_BUILT "${description}")
  elseif(${option} STREQUAL AUTO)
    lumsar_left_out("${description}" "install ${missing}")
  else()
    message(FATAL_ERROR "${option} is ${${option}}, but ${description} cannot be built: "
      "install ${missing}")
  endif()
endfunction()

function(lumsar_left_out description reason)
  set_property(GLOBAL APPEND PROPERTY LUMSAR_LEFT_OUT "${description} (${reason})")
endfunction()

function(lumsar_print_summary)
  get_property(built GLOBAL PROPERTY LUMSAR_BUILT)
  get_property(left_out GLOBAL PROPERTY LUMSAR_LEFT_OUT)
  message(STATUS "")
  foreach(description IN LISTS built)
    message(STATUS "will be built: ${description}")
  endforeach()
  foreach(description IN LISTS left_out)
    message(STATUS "left out:      ${description}")
  endforeach()
  message(STATUS "")
endfunction()
