# The FPGA's miscellaneous register block (firmware identity, front-panel
# volume, test tone, GPIO, PPS and PTP registers).
add_library(fpt_platform_misc ${CMAKE_CURRENT_LIST_DIR}/MiscellaneousRegisterApi.cpp)
target_link_libraries(fpt_platform_misc PUBLIC fpt_platform_axi)
