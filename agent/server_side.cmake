# The agent's command socket, its event loop and its two programs.
find_package(CLI11 REQUIRED)
add_compile_definitions(VORN_VERSION="${PROJECT_VERSION}")

set(AGENT_SERVER_SIDE
    AgentOptions.cpp
    CommandServer.cpp
    EventLoop.cpp
    Protocol.cpp
    ReportChild.cpp
    ReportFilter.cpp
    ShowClient.cpp
    ShowCommand.cpp
    UnixSocket.cpp)
