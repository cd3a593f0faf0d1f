# The Windows plug-in FLAIR.dll: the engine, the editor dialog, the exports at
# their ordinals and the resources; the host libraries are imported by ordinal.
enable_language(RC)

# Definition files name the 32-bit standard-call symbols (Name@bytes); 64-bit
# Windows has one calling convention and undecorated names.
function(definition_for_target source output)
  file(READ ${source} text)
  if(CMAKE_SIZEOF_VOID_P EQUAL 8)
    string(REGEX REPLACE "([A-Za-z_]+)@[0-9]+" "\\1" text "${text}")
  endif()
  file(WRITE ${output} "${text}")
endfunction()

# Import libraries for the host's libraries, made from our definition files.
set(HOST_LIBRARIES animkit basekit huekit pixkit)
find_program(DLLTOOL NAMES ${CMAKE_SYSTEM_PROCESSOR}-w64-mingw32-dlltool i686-w64-mingw32-dlltool
             x86_64-w64-mingw32-dlltool REQUIRED)
set(IMPORT_LIBS)
foreach(lib ${HOST_LIBRARIES})
  set(out ${CMAKE_CURRENT_BINARY_DIR}/lib${lib}.a)
  definition_for_target(${CMAKE_CURRENT_SOURCE_DIR}/host/${lib}.def ${CMAKE_CURRENT_BINARY_DIR}/${lib}.def)
  add_custom_command(OUTPUT ${out}
    COMMAND ${DLLTOOL} -d ${CMAKE_CURRENT_BINARY_DIR}/${lib}.def -l ${out}
    DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/host/${lib}.def)
  list(APPEND IMPORT_LIBS ${out})
endforeach()
add_custom_target(host_import_libs DEPENDS ${IMPORT_LIBS})

definition_for_target(${CMAKE_CURRENT_SOURCE_DIR}/host/flair.def ${CMAKE_CURRENT_BINARY_DIR}/flair.def)
add_library(FLAIR SHARED
  editor/editor_dialog.cpp host/windows/dll_main.cpp resources/flair.rc ${CMAKE_CURRENT_BINARY_DIR}/flair.def)
set_target_properties(FLAIR PROPERTIES PREFIX "" OUTPUT_NAME FLAIR)
add_dependencies(FLAIR host_import_libs)
target_link_libraries(FLAIR PRIVATE flairize_editor flairize_plugin ${IMPORT_LIBS} user32 gdi32 comdlg32)
# The C and C++ runtimes go inside the DLL: it needs only system libraries and the host's.
target_link_options(FLAIR PRIVATE -static -static-libgcc -static-libstdc++ -Wl,--enable-stdcall-fixup)
set_source_files_properties(resources/flair.rc PROPERTIES
  OBJECT_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/resources/strings.inc;${CMAKE_CURRENT_SOURCE_DIR}/resources/flair.ico")

# The Wine test host and stand-ins for the host's libraries, over Flairize's own
# picture operations.
option(FLAIRIZE_WINE_TESTS "Build the Wine test host and the stand-in host libraries" ON)
if(FLAIRIZE_WINE_TESTS)
  foreach(lib ${HOST_LIBRARIES})
    string(TOUPPER ${lib} LIB)
    file(READ ${CMAKE_CURRENT_BINARY_DIR}/${lib}.def definition)
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/standin_${lib}.def "${definition}    StandIn_Log\n")
    add_library(standin_${lib} SHARED tests/standin_host.cpp tests/windows/standin_ui.cpp
                ${CMAKE_CURRENT_BINARY_DIR}/standin_${lib}.def)
    set_target_properties(standin_${lib} PROPERTIES PREFIX "" OUTPUT_NAME ${LIB})
    target_compile_definitions(standin_${lib} PRIVATE STANDIN_${LIB} FLAIRIZE_STANDIN)
    target_link_libraries(standin_${lib} PRIVATE flairize_host_ops user32 gdi32)
    target_link_options(standin_${lib} PRIVATE -static -static-libgcc -static-libstdc++ -Wl,--enable-stdcall-fixup)
  endforeach()
  add_executable(wine_host tests/windows/wine_host.cpp tests/conformance/sha256.cpp)
  target_include_directories(wine_host PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(wine_host PRIVATE user32 gdi32 bcrypt)
  target_link_options(wine_host PRIVATE -static -static-libgcc -static-libstdc++)
endif()
