#include "support/web_servers.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <utility>

namespace qvx::test {
namespace {

constexpr int kStartAttempts = 2000;  // of 5 ms

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

bool Listens(std::uint16_t port) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in address = Loopback(port);
  const int result =
      connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  close(descriptor);
  return result == 0;
}

// The child ends with the test, however that ends.
pid_t Spawn(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& argument : command) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child != 0) return child;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int nothing = open("/dev/null", O_RDWR);
  dup2(nothing, 1);
  dup2(nothing, 2);
  execvp(arguments[0], arguments.data());
  _exit(127);
}

std::string Address(const char* scheme, std::uint16_t port, const std::string& name) {
  return std::string(scheme) + "://127.0.0.1:" + std::to_string(port) + "/" + name;
}

void MakeAuthority(const TempFolder& folder, const std::string& name) {
  const std::vector<std::string> make = {"openssl",
                                         "req",
                                         "-x509",
                                         "-newkey",
                                         "ec",
                                         "-pkeyopt",
                                         "ec_paramgen_curve:P-256",
                                         "-nodes",
                                         "-days",
                                         "2",
                                         "-subj",
                                         "/CN=" + name,
                                         "-keyout",
                                         folder.Path(name + ".key"),
                                         "-out",
                                         folder.Path(name + ".pem")};
  EXPECT_EQ(RunProgram(make), 0);
}

void MakeCertificate(const TempFolder& folder) {
  folder.Write("names", "subjectAltName=IP:127.0.0.1\n");
  EXPECT_EQ(RunProgram({"openssl", "req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256",
                        "-nodes", "-subj", "/CN=127.0.0.1", "-keyout", folder.Path("server.key"),
                        "-out", folder.Path("server.req")}),
            0);
  EXPECT_EQ(RunProgram({"openssl", "x509", "-req", "-days", "2", "-in", folder.Path("server.req"),
                        "-CA", folder.Path("authority.pem"), "-CAkey", folder.Path("authority.key"),
                        "-CAcreateserial", "-extfile", folder.Path("names"), "-out",
                        folder.Path("server.pem")}),
            0);
}

std::string NginxSettings(const std::string& own, const std::string& served, std::uint16_t port,
                          std::uint16_t secure_port) {
  std::string text = "daemon off; master_process off; pid " + own + "/pid; error_log " + own +
                     "/log;\nevents {}\nhttp {\n  access_log off; sendfile on; gzip off;\n";
  for (const char* use : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
    text += std::string("  ") + use + "_temp_path " + own + "/" + use + ";\n";
  }
  return text + "  server {\n    listen 127.0.0.1:" + std::to_string(port) +
         ";\n    listen 127.0.0.1:" + std::to_string(secure_port) + " ssl;\n    ssl_certificate " +
         own + "/server.pem;\n    ssl_certificate_key " + own + "/server.key;\n    root " + served +
         ";\n    location /private/ {\n      alias " + served +
         "/;\n      auth_basic closed;\n      auth_basic_user_file " + own +
         "/users;\n    }\n    location /moved/ { rewrite ^/moved/(.*)$ /$1 redirect; }\n" +
         "    location = /echo {\n      proxy_set_header X-Body $request_body;\n" +
         "      proxy_pass http://127.0.0.1:" + std::to_string(port) +
         "/posted;\n    }\n    location = /posted { return 200 $request_method:$http_x_body; }\n" +
         "  }\n}\n";
}

std::string ApacheSettings(const std::string& own, const std::string& served, std::uint16_t port) {
  std::string text;
  for (const char* module :
       {"mpm_prefork", "authn_core", "authn_file", "authz_core", "authz_user", "auth_digest"}) {
    text += std::string("LoadModule ") + module + "_module /usr/lib/apache2/modules/mod_" + module +
            ".so\n";
  }
  if (geteuid() == 0) text += "User nobody\nGroup nogroup\n";
  return text + "ServerName 127.0.0.1\nKeepAlive Off\nListen 127.0.0.1:" + std::to_string(port) +
         "\nDefaultRuntimeDir " + own + "\nPidFile " + own + "/pid\nErrorLog " + own +
         "/log\nMutex file:" + own + "\nDocumentRoot " + served + "\n<Directory " + served +
         ">\n  AuthType Digest\n  AuthName closed\n  AuthUserFile " + own +
         "/users\n  Require valid-user\n</Directory>\n";
}

}  // namespace

std::uint16_t FreePort() {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof(address);
  EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), size), 0);
  EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size), 0);
  close(descriptor);
  return ntohs(address.sin_port);
}

int RunProgram(const std::vector<std::string>& command) {
  const pid_t child = Spawn(command);
  int status = -1;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

void ServerProcess::Start(const std::vector<std::string>& command, std::uint16_t port) {
  process_ = Spawn(command);
  for (int i = 0; i < kStartAttempts; ++i) {
    if (Listens(port)) return;
    if (waitpid(process_, nullptr, WNOHANG) != 0) {
      process_ = -1;
      break;
    }
    const timespec pause = {0, 5'000'000};
    nanosleep(&pause, nullptr);
  }
  ADD_FAILURE() << command[0] << " does not serve";
}

void ServerProcess::Kill() {
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  waitpid(std::exchange(process_, -1), nullptr, 0);
}

Nginx::Nginx(const std::string& served_folder) : port_(FreePort()), secure_port_(FreePort()) {
  MakeAuthority(settings_, "authority");
  MakeAuthority(settings_, "other");
  MakeCertificate(settings_);
  settings_.Write("users", "user:{PLAIN}secret\n");
  settings_.Write("conf", NginxSettings(settings_.Path(), served_folder, port_, secure_port_));
  Start();
}

void Nginx::Start() {
  process_.Start({"/usr/sbin/nginx", "-c", settings_.Path("conf"), "-e", settings_.Path("log")},
                 port_);
}

std::string Nginx::Url(const std::string& name) const {
  return Address("http", port_, name);
}

std::string Nginx::SecureUrl(const std::string& name) const {
  return Address("https", secure_port_, name);
}

std::string Nginx::Authority() const {
  return ReadWhole(settings_.Path("authority.pem"));
}

std::string Nginx::OtherAuthority() const {
  return ReadWhole(settings_.Path("other.pem"));
}

// Started by root it serves as nobody, who must be able to read.
ApacheDigest::ApacheDigest(const std::string& served_folder) : port_(FreePort()) {
  chmod(settings_.Path().c_str(), 0755);
  chmod(served_folder.c_str(), 0755);
  settings_.Write("users",
                  "user:closed:16140f1f49c4852658213c3851021fda\n");  // MD5 of user:closed:secret
  settings_.Write("conf", ApacheSettings(settings_.Path(), served_folder, port_));
  process_.Start({"/usr/sbin/apache2", "-X", "-f", settings_.Path("conf")}, port_);
}

std::string ApacheDigest::Url(const std::string& name) const {
  return Address("http", port_, name);
}

Tinyproxy::Tinyproxy() : port_(FreePort()) {
  settings_.Write("conf", "Port " + std::to_string(port_) +
                              "\nListen 127.0.0.1\nTimeout 60\nMaxClients 20\nLogFile \"" +
                              settings_.Path("log") +
                              "\"\nAllow 127.0.0.1\nBasicAuth user secret\n");
  process_.Start({"tinyproxy", "-d", "-c", settings_.Path("conf")}, port_);
}

std::string Tinyproxy::Address() const {
  return "127.0.0.1:" + std::to_string(port_);
}

}  // namespace qvx::test
