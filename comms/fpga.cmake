# The FPGA self-test audio control: builds the platform and drives the test
# tone and volume through the miscellaneous register block.
add_library(fpt_comms_fpga ${CMAKE_CURRENT_LIST_DIR}/SelfTestFPGAComms.cpp)
target_link_libraries(fpt_comms_fpga
    PUBLIC fpt_platform_sdk fpt_platform_bus fpt_platform_blocks fpt_platform_misc
           fpt_platform_descriptor fpt_platform_axi)

fpt_add_test(comms_selftest_fpga_tests
    SOURCES ${CMAKE_CURRENT_LIST_DIR}/tests/SelfTestFPGACommsTest.cpp
    LIBS fpt_comms_fpga fpt_platform_axi_testing fpt_platform_descriptor_testing)
