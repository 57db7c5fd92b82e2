# SPDX-License-Identifier: Apache-2.0
# How the agent finds queues and their bursts in what a machine tells, and how its records look.
foreach(test IN ITEMS agent_source_test agent_burst_test agent_flows_test agent_metrics_test agent_probe_test)
  add_executable(${test} ${test}.cpp)
  target_link_libraries(${test} PRIVATE vorn-agent-lib vorn-probe GTest::gtest_main)
  vorn_warnings(${test})
  gtest_discover_tests(${test})
endforeach()
