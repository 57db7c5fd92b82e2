# SPDX-License-Identifier: Apache-2.0
# The agent's command socket, its front door by name, its client, the command lines of both, and its saved history.
foreach(name IN ITEMS agent_history_test agent_query_test agent_server_test agent_by_name_test agent_command_line_test)
  add_executable(${name} ${name}.cpp)
  target_link_libraries(${name} PRIVATE vorn-agent-lib GTest::gtest_main)
  vorn_warnings(${name})
  gtest_discover_tests(${name})
endforeach()
target_compile_definitions(agent_server_test PRIVATE VORN_AGENT="$<TARGET_FILE:vorn-agent>")
add_dependencies(agent_server_test vorn-agent)
target_compile_definitions(agent_command_line_test PRIVATE VORN_SAMPLE_CONFIG="${PROJECT_SOURCE_DIR}/agent/agent.toml")
if(VORN_SANITIZE)
  # As in the agent: the JSON library adds to a null pointer before it first grows.
  set_source_files_properties(agent_by_name_test.cpp PROPERTIES COMPILE_OPTIONS -fno-sanitize=pointer-overflow)
  target_compile_definitions(agent_by_name_test PRIVATE VORN_SANITIZED)
endif()

# Agent, queues and client together, in network namespaces of their own. 77: it has printed why it cannot run.
add_test(NAME end-to-end
         COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/end_to_end_test.sh" $<TARGET_FILE:vorn-agent> $<TARGET_FILE:vorn-show>
                 $<TARGET_FILE:vorn-burst>)
# Alone: it is about bursts that last as long as a busy machine may keep an agent waiting.
set_tests_properties(end-to-end PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 RUN_SERIAL TRUE)
add_test(NAME probe
         COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/probe_test.sh" $<TARGET_FILE:vorn-agent> $<TARGET_FILE:vorn-show>
                 $<TARGET_FILE:vorn-burst>)
set_tests_properties(probe PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 180 RUN_SERIAL TRUE)
if(TARGET vorn-exporter)
  add_test(NAME metrics
           COMMAND "${CMAKE_CURRENT_SOURCE_DIR}/metrics_test.sh" $<TARGET_FILE:vorn-agent> $<TARGET_FILE:vorn-show>
                   $<TARGET_FILE:vorn-burst> $<TARGET_FILE:vorn-exporter>)
  set_tests_properties(metrics PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 180 RUN_SERIAL TRUE)
endif()

# The page of a timeline in a browser, and a trace read back. 77: they have printed what they lack.
# Alone, as both measure time.
add_executable(made_reports made_reports.cpp)
target_link_libraries(made_reports PRIVATE vorn-agent-lib)
vorn_warnings(made_reports)
if(VORN_SANITIZE OR VORN_COVERAGE)
  set(pace --slow)
endif()
set(needs_python "command -v python3 >/dev/null || { echo 'skipped: python3 is not installed'; exit 77; }")
foreach(name IN ITEMS timeline_page_test perfetto_trace_test)
  add_test(NAME ${name} COMMAND sh -c "${needs_python}; exec \"$@\"" sh "${CMAKE_CURRENT_SOURCE_DIR}/${name}.py"
                                $<TARGET_FILE:made_reports> ${pace})
  set_tests_properties(${name} PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 300 RUN_SERIAL TRUE)
endforeach()
