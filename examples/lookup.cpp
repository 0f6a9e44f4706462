// lookup HOST: prints the name and the IPv4 addresses of a host.

#include <arpa/inet.h>
#include <sys/socket.h>

#include <clocale>
#include <cstdio>

#include <Corvane/GetHostByName.h>

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  std::setlocale(LC_ALL, "");  // the encoding of the argument
  const Corvane::ZGetHostByName lookup(argv[1]);
  const hostent* const host = lookup.GetHostEnt();
  if (host == nullptr) {
    std::fprintf(stderr, "%s: not found\n", argv[1]);
    return 1;
  }
  std::printf("%s\n", host->h_name);
  if (host->h_addrtype != AF_INET) return 0;
  for (char** address = host->h_addr_list; *address != nullptr; ++address) {
    char text[INET_ADDRSTRLEN];
    if (inet_ntop(AF_INET, *address, text, sizeof text) != nullptr) std::printf("%s\n", text);
  }
}
