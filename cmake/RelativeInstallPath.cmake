# relative_install_path(RESULT FROM TO): how a program in the installed folder FROM names the installed folder TO, wherever
# the copy is moved as a whole. Both are CMAKE_INSTALL_FULL_...
function(relative_install_path result from to)
    cmake_path(RELATIVE_PATH to BASE_DIRECTORY ${from} OUTPUT_VARIABLE path)
    set(${result} ${path} PARENT_SCOPE)
endfunction()
