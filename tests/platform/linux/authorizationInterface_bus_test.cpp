#include "tests/platform/linux/AuthorizationBroker.h"

namespace tests::authorization {
namespace {

std::string lineAfterLine(const std::string& xml) {
  std::string result;
  std::istringstream lines(xml);
  for (std::string line; std::getline(lines, line);) {
    const auto begin = line.find_first_not_of(' ');
    if (begin != std::string::npos) result += line.substr(begin) + "\n";
  }
  return result;
}

// The part of a description that is about the broker's own interface.
std::string interfaceIn(const std::string& xml) {
  const auto begin = xml.find(std::string("<interface name=\"") + protocol::brokerInterface + "\">");
  if (begin == std::string::npos) return xml;
  return lineAfterLine(xml.substr(begin, xml.find("</interface>", begin) - begin));
}

TEST_F(AuthorizationBroker, DescribesItselfOnTheBusAsTheFileOfItsInterfaceSays) {
  controller.create();
  const auto own = platform::Linux::Bus::openUser();
  sd_bus_message* reply = nullptr;
  const char* xml = "";
  ASSERT_GE(sd_bus_call_method(own->get(), brokerName, protocol::brokerObjectPath, "org.freedesktop.DBus.Introspectable",
                               "Introspect", nullptr, &reply, ""),
            0);
  ASSERT_GE(sd_bus_message_read(reply, "s", &xml), 0);
  std::ifstream file(std::string(KELTO_SOURCE_DIR "/protocol/") + protocol::brokerInterface + ".xml");
  const std::string described((std::istreambuf_iterator<char>(file)), {});
  EXPECT_EQ(interfaceIn(xml), interfaceIn(described));
  sd_bus_message_unref(reply);
}

TEST_F(AuthorizationBroker, TellsTheVersionOfItsInterface) {
  controller.create();
  const auto own = platform::Linux::Bus::openUser();
  std::uint32_t version = 0;
  ASSERT_GE(sd_bus_get_property_trivial(own->get(), brokerName, protocol::brokerObjectPath, protocol::brokerInterface,
                                        protocol::brokerVersionProperty, nullptr, 'u', &version),
            0);
  EXPECT_EQ(version, protocol::brokerVersion);
}

TEST_F(AuthorizationBroker, UsesAtMostEightMegabytes) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers need memory of their own";
#endif
  std::array<Client, 4> clients;
  for (int i = 0; i < 64; ++i) clients[i % 4].exported(clients[i % 4].create());
  const auto own = platform::Linux::Bus::openUser();
  sd_bus_creds* credentials = nullptr;
  pid_t process = 0;
  ASSERT_GE(sd_bus_get_name_creds(own->get(), brokerName, SD_BUS_CREDS_PID, &credentials), 0);
  ASSERT_GE(sd_bus_creds_get_pid(credentials, &process), 0);
  sd_bus_creds_unref(credentials);
  std::ifstream statistics("/proc/" + std::to_string(process) + "/statm");
  long pages = 0;
  long residentPages = 0;
  statistics >> pages >> residentPages;
  EXPECT_GT(residentPages, 0);
  EXPECT_LE(residentPages * ::sysconf(_SC_PAGESIZE), 8L << 20);
}

TEST_F(AuthorizationBroker, ABusThatIsGoneIsAnInternalError) {
  const AuthorizationRef authorization = authorized(controller);
  bus.stop();
  AuthorizationRef another = 0;
  AuthorizationExternalForm form;
  std::unique_ptr<ByteStream> stream;
  EXPECT_EQ(controller.copyRight(authorization, 18), errAuthorizationInternal);
  EXPECT_EQ(controller.services.makeExternalForm(authorization, form), errAuthorizationInternal);
  EXPECT_EQ(controller.services.create(0, another), errAuthorizationInternal);
  EXPECT_EQ(controller.execute(authorization, probe(), stream), errAuthorizationInternal);
  EXPECT_EQ(controller.services.free(authorization, 8), errAuthorizationInternal);
}

}  // namespace
}  // namespace tests::authorization
