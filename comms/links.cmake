# The panel's serial line and its input-event devices.
add_library(fpt_comms_links FrontPanelComms.cpp EventDeviceComms.cpp)
target_link_libraries(fpt_comms_links PUBLIC Qt5::Core)

fpt_add_test(comms_frontpanel_tests SOURCES tests/FrontPanelCommsTest.cpp LIBS fpt_comms_links
             TIMEOUT 30)
fpt_add_test(comms_eventdevice_tests SOURCES tests/EventDeviceCommsTest.cpp LIBS fpt_comms_links
             TIMEOUT 30)
