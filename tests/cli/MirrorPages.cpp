#include "tests/cli/MirrorPages.h"

namespace CorvaneTest {

std::string PageOf(const std::vector<std::string>& names) {
  std::string page = "<html><body><pre>\n<a href=\"../\">../</a>\n";
  for (const std::string& name : names) {
    page.append("<a href=\"").append(name).append("\">").append(name).append("</a>  01-Jan-2026 00:00  5\n");
  }
  return page + "</pre></body></html>\n";
}

Responder Directory(const std::map<std::string, Responder>& files) {
  std::vector<std::string> names;
  std::map<std::string, Responder> table;
  for (const auto& [name, responder] : files) {
    names.push_back(name);
    table["/d/" + name] = responder;
  }
  table["/d/"] = Content(PageOf(names));
  return Routes(table);
}

std::vector<std::string> PathsAskedOf(const ScriptedServer& server) {
  std::vector<std::string> paths;
  for (const Request& request : server.Requests()) paths.push_back(request.Path());
  return paths;
}

}  // namespace CorvaneTest
