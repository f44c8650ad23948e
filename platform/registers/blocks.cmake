# Register blocks beside the miscellaneous block: the Si5367 clock
# synthesiser, the front-panel DAC, the self-test audio blocks and the other
# blocks the registry holds.
add_library(fpt_platform_blocks
    ${CMAKE_CURRENT_LIST_DIR}/Clock1001SynthesizerSi5367cRegisterApi.cpp
    ${CMAKE_CURRENT_LIST_DIR}/MainClockSynthesizerLmk04808RegisterApi.cpp)
target_link_libraries(fpt_platform_blocks
    PUBLIC fpt_platform_bus fpt_platform_axi
    PRIVATE fpt_logging)
