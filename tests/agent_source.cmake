# How the agent finds bursts in what the queues of a machine tell, and how its records look.
add_executable(agent_source_test agent_source_test.cpp)
target_link_libraries(agent_source_test PRIVATE vorn-agent-lib GTest::gtest_main)
vorn_warnings(agent_source_test)
gtest_discover_tests(agent_source_test)
