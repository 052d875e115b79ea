# What makes the mistakes of a program harder to abuse: programs that root runs in folders that everybody writes to, and
# libraries that are preloaded into others'. The driver library declares its own; its instructions are counted.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()
check_cxx_compiler_flag(-fstack-clash-protection AUTHCHIP_HAS_STACK_CLASH_PROTECTION)
check_cxx_compiler_flag(-fcf-protection=full AUTHCHIP_HAS_CF_PROTECTION)            # x86
check_cxx_compiler_flag(-mbranch-protection=standard AUTHCHIP_HAS_BRANCH_PROTECTION) # 64-bit ARM

# authchip_harden(FOLDER...): every target that these folders define.
function(authchip_harden)
    if(AUTHCHIPDRIVER_INSTRUMENTED) # sanitizers look closer, and the checks of both get in each other's way
        return()
    endif()
    foreach(folder IN LISTS ARGN)
        get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
        foreach(target IN LISTS targets)
            authchip_harden_target(${target})
        endforeach()
    endforeach()
endfunction()

function(authchip_harden_target target)
    get_target_property(type ${target} TYPE)
    if(type STREQUAL "UTILITY" OR type STREQUAL "INTERFACE_LIBRARY")
        return()
    endif()
    target_compile_options(${target} PRIVATE
        -fstack-protector-strong
        $<$<BOOL:${AUTHCHIP_HAS_STACK_CLASH_PROTECTION}>:-fstack-clash-protection>
        $<$<BOOL:${AUTHCHIP_HAS_CF_PROTECTION}>:-fcf-protection=full>
        $<$<BOOL:${AUTHCHIP_HAS_BRANCH_PROTECTION}>:-mbranch-protection=standard>
    )
    if(type STREQUAL "MODULE_LIBRARY") # defines the very functions that fortified headers replace
        target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
        return()
    endif()
    target_compile_options(${target} PRIVATE -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS)
    if(type STREQUAL "EXECUTABLE")
        set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
        target_link_options(${target} PRIVATE -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack)
    elseif(type STREQUAL "STATIC_LIBRARY")
        set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    endif()
endfunction()
