# The Windows plug-in FLAIR.dll: the engine, the editor dialog, the exports at
# their ordinals and the resources; the host libraries are imported by ordinal.
enable_language(RC)

# Import libraries for the host's libraries, made from our definition files.
set(HOST_LIBRARIES animkit basekit huekit pixkit)
find_program(DLLTOOL NAMES ${CMAKE_SYSTEM_PROCESSOR}-w64-mingw32-dlltool i686-w64-mingw32-dlltool
             x86_64-w64-mingw32-dlltool REQUIRED)
set(IMPORT_LIBS)
foreach(lib ${HOST_LIBRARIES})
  set(out ${CMAKE_CURRENT_BINARY_DIR}/lib${lib}.a)
  add_custom_command(OUTPUT ${out}
    COMMAND ${DLLTOOL} -d ${CMAKE_CURRENT_SOURCE_DIR}/hostapi/${lib}.def -l ${out}
    DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/hostapi/${lib}.def)
  list(APPEND IMPORT_LIBS ${out})
endforeach()
add_custom_target(host_import_libs DEPENDS ${IMPORT_LIBS})

add_library(FLAIR SHARED
  editor/editor_dialog.cpp host/windows/dll_main.cpp resources/flair.rc host/flair.def)
set_target_properties(FLAIR PROPERTIES PREFIX "" OUTPUT_NAME FLAIR)
add_dependencies(FLAIR host_import_libs)
target_link_libraries(FLAIR PRIVATE flairize_engine ${IMPORT_LIBS} user32 gdi32 comdlg32)
# The C and C++ runtimes go inside the DLL: it needs only system libraries and the host's.
target_link_options(FLAIR PRIVATE -static -static-libgcc -static-libstdc++ -Wl,--enable-stdcall-fixup)
set_source_files_properties(resources/flair.rc PROPERTIES
  OBJECT_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/resources/strings.inc;${CMAKE_CURRENT_SOURCE_DIR}/resources/flair.ico")
