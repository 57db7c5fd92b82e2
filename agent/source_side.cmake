# The queues of this machine: reading them, finding bursts in them, and how their records look in reports.
set(AGENT_SOURCE_SIDE
    AgentClock.cpp
    CongestionDetector.cpp
    CongestionFeed.cpp
    InterfaceTable.cpp
    LeafQueues.cpp
    LinuxEntry.cpp
    LinuxPortMetaDataDumper.cpp
    QdiscDump.cpp
    QdiscSource.cpp
    ReportColumns.cpp
    ReportLine.cpp)
