# mirt_embed(TARGET FOLDER): for each file in the folder, such as page/page.css, the sources of the
# target can include "page/page.css.inc", a string literal with its text.
function(mirt_embed target folder)
  cmake_path(GET folder FILENAME name)
  file(GLOB files CONFIGURE_DEPENDS ${folder}/*)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${files})
  foreach(path ${files})
    cmake_path(GET path FILENAME file)
    file(READ ${path} text)
    file(CONFIGURE OUTPUT embedded/${name}/${file}.inc CONTENT "R\"embedded(@text@)embedded\"\n"
         @ONLY)
  endforeach()
  target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/embedded)
endfunction()
