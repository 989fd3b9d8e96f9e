// plain_client: an RDP client without a screen that has the add-in, as xfreerdp has. It reads what
// to do: "again" to connect again once the server has ended the connection, "quit". Usage:
// plain_client SERVER STATE-DIRECTORY ADD-IN-WORD...
#include <iostream>
#include <string>

#include "integration/rdp/addin_client.h"

int main(int argc, char** argv) {
  lumsar::test::AddInClient client(argv[1], argv[2], {argv + 3, argv + argc});
  bool connected = client.connected();
  while (connected) {
    std::cout << "client: connected" << std::endl;
    std::string line;
    if (!std::getline(std::cin, line) || line == "quit") return 0;
    connected = client.connectAgain();
  }
  return 1;
}
