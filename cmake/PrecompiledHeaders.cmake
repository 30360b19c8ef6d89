# Headers of others that take the compiler longest, translated once for each target. What ships and what clang-tidy reads
# gets none in the presets for that: there, each file proves that it includes what it needs.
target_precompile_headers(unit_tests PRIVATE <QList> <QString> <QDomDocument> <gmock/gmock.h> <gtest/gtest.h>
                                             <MQTTClient.h> <plog/Log.h>)
target_precompile_headers(plcctl_tests PRIVATE <CLI/CLI.hpp> <gtest/gtest.h> <nlohmann/json.hpp>)
if(PRECOMPILED_HEADERS)
    target_precompile_headers(mqttclientcore PRIVATE <QList> <QString> <QDomDocument> <MQTTClient.h> <plog/Log.h>)
    target_precompile_headers(plcctlcore PRIVATE <CLI/CLI.hpp> <nlohmann/json.hpp>)
endif()
