# Headers of others that take the compiler longest, translated once for each target. Not in the presets that ship or that
# clang-tidy reads: there, each file proves that it includes what it needs.
target_precompile_headers(mqttclientcore PRIVATE <QList> <QString> <QDomDocument> <MQTTClient.h> <plog/Log.h>)
target_precompile_headers(unit_tests PRIVATE <QList> <QString> <QDomDocument> <gmock/gmock.h> <gtest/gtest.h>
                                             <MQTTClient.h> <plog/Log.h>)
