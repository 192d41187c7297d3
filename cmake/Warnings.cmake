# Everything that the project compiles itself is built with these: an interface library, so that no target forgets one.
add_library(zarvo_options INTERFACE)
target_compile_features(zarvo_options INTERFACE cxx_std_20)
target_compile_options(zarvo_options INTERFACE -Wall -Wextra -Wshadow -fno-strict-overflow)
target_compile_definitions(zarvo_options INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_CAST_FROM_BYTEARRAY QT_NO_URL_CAST_FROM_STRING
    QT_NO_NARROWING_CONVERSIONS_IN_CONNECT QT_NO_FOREACH QT_NO_KEYWORDS
    U_USING_ICU_NAMESPACE=0 U_SHOW_CPLUSPLUS_API=1)

set(ZARVO_SANITIZER "" CACHE STRING "asan (with UBSan), tsan, fuzzer (with both of asan), or nothing")
if(ZARVO_SANITIZER STREQUAL "asan")
    # GCC's guesses about what is read unwritten are wrong where a sanitizer's calls stand in between.
    # Frames are kept and optimisation is light: readable reports in a time that a test run can bear.
    set(zarvo_flags -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -O1 -Wno-maybe-uninitialized)
elseif(ZARVO_SANITIZER STREQUAL "tsan")
    set(zarvo_flags -fsanitize=thread -fno-omit-frame-pointer -O1 -Wno-maybe-uninitialized)
elseif(ZARVO_SANITIZER STREQUAL "fuzzer")
    # Clang only. Everything counts its branches; the main function comes with the fuzzers alone.
    set(zarvo_flags -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer -O1)
elseif(NOT ZARVO_SANITIZER STREQUAL "")
    message(FATAL_ERROR "ZARVO_SANITIZER is asan, tsan, fuzzer or empty")
endif()

if(ZARVO_SANITIZER)
    target_compile_options(zarvo_options INTERFACE ${zarvo_flags})
    target_link_options(zarvo_options INTERFACE ${zarvo_flags})
else()
    target_compile_options(zarvo_options INTERFACE
        -fstack-protector-strong -fstack-clash-protection -fPIE
        $<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 -D_GLIBCXX_ASSERTIONS>)
    if(NOT APPLE)
        target_link_options(zarvo_options INTERFACE -Wl,-z,relro,-z,now)
    endif()
    target_link_options(zarvo_options INTERFACE $<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>)
endif()
