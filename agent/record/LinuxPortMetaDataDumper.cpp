// SPDX-License-Identifier: Apache-2.0
#include "agent/record/LinuxPortMetaDataDumper.h"

#include "agent/record/QueueName.h"
#include "agent/record/ReportColumns.h"

namespace Agent {

LinuxPortMetaDataDumper::~LinuxPortMetaDataDumper() = default;

Kes::S32 LinuxPortMetaDataDumper::dumpStartMetaData(Vorn::PortMetaData const* portMetaData,
                                                    Kes::VoidPtr stream, bool csvFormat) const {
  std::string_view const interface = portMetaData->intfId().shortName().view();
  QueueName const queue = QueueName::ofKey(portMetaData->identifier());
  ReportLine line;
  if (csvFormat) {
    line.addField("start");
    line.addField(interface);
    line.addField(queue.text());
    line.addField(portMetaData->identifier());
    line.addEmptyFields(1);
    line.addField(portMetaData->timeOfCongestionStart().value());
    line.addEmptyFields(5);
  } else {
    line.addTime(columns::time, portMetaData->timeOfCongestionStart());
    line.addText(columns::interface, interface);
    line.addText(columns::queue, queue.text());
    line.addText({"", 0, Column::Align::left}, "congested since then, first records overwritten");
  }
  return line.write(stream);
}

Kes::S32 LinuxPortMetaDataDumper::dumpStatistics(Vorn::PortMetaData const* portMetaData,
                                                 Kes::VoidPtr stream) const {
  ReportLine line;
  line.addText(columns::interface, portMetaData->intfId().shortName().view());
  line.addText(columns::queue, QueueName::ofKey(portMetaData->identifier()).text());
  line.addNumber(columns::bursts, portMetaData->counter(), "");
  return line.write(stream);
}

}  // namespace Agent
