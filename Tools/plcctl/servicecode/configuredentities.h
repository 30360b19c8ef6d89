#pragma once

#include "Entities/clientbroker.h"
#include "Entities/publisher.h"
#include "Entities/subscriber.h"

#include <QList>
#include <string>

namespace plcctl {

// The entities of a configuration directory, as the service's own parser reads them. The files are copied first, so
// that reading needs no right to write them. Files that brokers name lie in the same directory. Throw Failure where the
// file can't be read.
QList<ClientBroker> readBrokers(const std::string& directory);
QList<Publisher> readPublications(const std::string& directory);
QList<Subscriber> readSubscriptions(const std::string& directory);

// The path of one file of the directory.
std::string pathIn(const std::string& directory, const char* file);

} // namespace plcctl
