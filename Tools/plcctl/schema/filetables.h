#pragma once

#include "configurationfiles.h"

// One table for each of the four files.
namespace plcctl::schema {

extern const ConfigurationFile GeneralFile;
extern const ConfigurationFile BrokersFile;
extern const ConfigurationFile SubscriptionsFile;
extern const ConfigurationFile PublicationsFile;

} // namespace plcctl::schema
