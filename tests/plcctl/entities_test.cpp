#include "entities.h"

#include "failure.h"

#include <gtest/gtest.h>

using namespace plcctl;

namespace {

DeviceConfig plant()
{
    DeviceConfig config;
    config.brokers.resize(2);
    config.brokers[0].id = 1;
    config.brokers[0].name = "plant";
    config.brokers[1].id = 2;
    config.brokers[1].name = "1";
    config.publications.resize(3);
    config.publications[0].id = 7;
    config.publications[0].name = "level";
    config.publications[1].id = 8;
    config.publications[1].name = "level";
    config.publications[2].id = 70'000;
    config.publications[2].name = "far";
    return config;
}

// The text of the failure, which has to be one of usage.
std::string refusal(EntityKind kind, const std::string& text)
{
    try {
        static_cast<void>(findEntity(plant(), kind, text)); // only the failure counts
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.code, ExitCode::Usage);
        return failure.what();
    }
    return "";
}

} // namespace

TEST(Entities, ANameStandsForItsId)
{
    EXPECT_EQ(findEntity(plant(), EntityKind::Broker, "plant").id, 1);
    EXPECT_EQ(describe(findEntity(plant(), EntityKind::Broker, "plant")), "broker 1 'plant'");
}

TEST(Entities, ANumberIsAlwaysAnIdAndNeedNotExist)
{
    EXPECT_EQ(describe(findEntity(plant(), EntityKind::Broker, "1")), "broker 1 'plant'");
    EXPECT_EQ(describe(findEntity(plant(), EntityKind::Subscription, "9999")), "subscription 9999");
}

TEST(Entities, ANameThatNoneOrSeveralHaveIsRefusedWithTheChoice)
{
    EXPECT_EQ(refusal(EntityKind::Broker, "Plant"), "there is no broker 'Plant'; there are 1 'plant', 2 '1'");
    EXPECT_EQ(refusal(EntityKind::Publication, "level"), "'level' is the name of more than one publication: 7 'level', "
                                                         "8 'level'; say which one by its ID");
    EXPECT_EQ(refusal(EntityKind::Subscription, "x"),
              "there is no subscription 'x', the configuration files name none");
}

TEST(Entities, AnIdThatARequestCannotNameIsRefused)
{
    for (const char* id : {"-1", "65536"})
        EXPECT_NE(refusal(EntityKind::Broker, id), "");
    EXPECT_NE(refusal(EntityKind::Publication, "far"), "");
    EXPECT_EQ(findEntity(plant(), EntityKind::Broker, "65535").id, 65535);
}
