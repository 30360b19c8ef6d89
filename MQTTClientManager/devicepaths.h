#pragma once

// Every path of the device that the service knows. They stand here and nowhere else.
namespace DevicePaths {

inline constexpr char LogFile[] = "/tmp/cStdErr.csv";
inline constexpr char PersistenceDirectory[] = "/tmp/MQTT_PERSISTENCE";

inline constexpr char ConfigurationDirectory[] = "/VEL/UserApps/Config/MQTT/";
inline constexpr char GeneralFile[] = "MQTTClientConf.xml";
inline constexpr char BrokersFile[] = "Brokers.xml";
inline constexpr char SubscriptionsFile[] = "Subscriptions.xml";
inline constexpr char PublicationsFile[] = "Publications.xml";

inline constexpr char PlcSettingsFile[] = "/VEL/System/Config/RetainedConfig/SystemRegistry/PlcSettings.json";
inline constexpr char SerialNumberCommand[] = "python /VEL/System/Config/Scripts/PYGetPLCSerial.py";
inline constexpr char MacAddressCommand[] = "/VEL/System/Config/Scripts/ManageMac.sh Get Ac";
inline constexpr char ClockCheckScript[] = "/VEL/System/Config/Scripts/ValidateSystemTimeIsSet.sh";

inline constexpr char SelfTestResults[] = "/VEL/System/AutoTests/Results/MQTTClientManager.txt";

inline constexpr char PublicationScriptDirectory[] = "/VEL/UserApps/Config/MQTT/Protobuf/";
// Intended: another name of the same directory.
inline constexpr char ProtobufCommand[] = "python /usr/UserApps_0/Config/MQTT/Protobuf/CreateProtobufBuffer.py %1";
inline constexpr char ProtobufResultFile[] = "/VEL/System/Config/ProtobufForMQTT";
inline constexpr char TriggeredPermissionCommand[] =
    "chmod -R 777 /VEL/UserApps/Config/MQTT/Protobuf/HandleMQTTTriggeredOp.sh";
inline constexpr char TriggeredCommand[] = "%1HandleMQTTTriggeredOp.sh %2";
inline constexpr char TriggeredResultFile[] = "/tmp/HandleMQTTTriggeredOp_URL.txt";

inline constexpr char ConnectivityCheckScript[] = "/VEL/System/Config/Scripts/OpenSslCheckConnectivity.sh";
inline constexpr char CandidateCaDirectory[] = "/etc/CA_Certificates/";
inline constexpr char SystemTrustStore[] = "/etc/ssl/certs/ca-certificates.crt";

} // namespace DevicePaths
