#include "support/web_servers.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "support/raw_peer.h"

namespace qvx::test {
namespace {

constexpr int kStartAttempts = 2000;  // of 5 ms

std::uint16_t FreePort() {
  return RawListener().Port();
}

bool Listens(std::uint16_t port) {
  try {
    RawPeer::To(port);
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
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

// NAME.pem with NAME.key, signed by itself unless the further words name an authority.
void MakeCertificate(const TempFolder& folder, const std::string& name, const std::string& more) {
  const std::string command = "cd '" + folder.Path() +
                              "' && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 "
                              "-nodes -days 2 -subj /CN=" +
                              name + " -keyout " + name + ".key -out " + name + ".pem " + more +
                              " >openssl.log 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0);
}

// The text with these marks replaced.
std::string Filled(std::string text,
                   const std::vector<std::pair<std::string, std::string>>& marks) {
  for (const auto& [mark, by] : marks) {
    for (std::size_t at = 0; (at = text.find(mark, at)) != std::string::npos; at += by.size()) {
      text.replace(at, mark.size(), by);
    }
  }
  return text;
}

// Names in both are below the server's own folder.
constexpr const char* kNginxSettings = R"(
daemon off; master_process off; pid pid; error_log log;
events {}
http {
  access_log off; sendfile on; gzip off;
  client_body_temp_path body; proxy_temp_path proxy; fastcgi_temp_path fastcgi;
  uwsgi_temp_path uwsgi; scgi_temp_path scgi;
  server {
    listen 127.0.0.1:@PORT@;
    listen 127.0.0.1:@SECURE@ ssl;
    ssl_certificate server.pem; ssl_certificate_key server.key;
    root @SERVED@;
    location /private/ { alias @SERVED@/; auth_basic closed; auth_basic_user_file users; }
    location /moved/ { rewrite ^/moved/(.*)$ /$1 redirect; }
    location = /echo {
      proxy_set_header X-Body $request_body; proxy_pass http://127.0.0.1:@PORT@/posted;
    }
    location = /posted { return 200 $request_method:$http_x_body$http_x_own; }
  }
}
)";

constexpr const char* kApacheSettings = R"(
ServerName 127.0.0.1
KeepAlive Off
Listen 127.0.0.1:@PORT@
DefaultRuntimeDir .
PidFile pid
ErrorLog log
Mutex file:.
DocumentRoot "@SERVED@"
<Directory "@SERVED@">
  AuthType Digest
  AuthName closed
  AuthUserFile users
  Require valid-user
</Directory>
)";

std::string ApacheModules() {
  std::string text;
  for (const char* module :
       {"mpm_prefork", "authn_core", "authn_file", "authz_core", "authz_user", "auth_digest"}) {
    text += std::string("LoadModule ") + module + "_module /usr/lib/apache2/modules/mod_" + module +
            ".so\n";
  }
  return text + (geteuid() == 0 ? "User nobody\nGroup nogroup\n" : "");
}

}  // namespace

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
  MakeCertificate(settings_, "authority", "");
  MakeCertificate(settings_, "other", "");
  MakeCertificate(settings_, "server",
                  "-CA authority.pem -CAkey authority.key -addext subjectAltName=IP:127.0.0.1");
  settings_.Write("users", "user:{PLAIN}secret\n");
  settings_.Write("conf", Filled(kNginxSettings, {{"@PORT@", std::to_string(port_)},
                                                  {"@SECURE@", std::to_string(secure_port_)},
                                                  {"@SERVED@", served_folder}}));
  Start();
}

void Nginx::Start() {
  process_.Start({"/usr/sbin/nginx", "-p", settings_.Path(), "-c", "conf", "-e", "log"}, port_);
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
  settings_.Write("conf", Filled(ApacheModules() + kApacheSettings,
                                 {{"@PORT@", std::to_string(port_)}, {"@SERVED@", served_folder}}));
  process_.Start({"/usr/sbin/apache2", "-X", "-d", settings_.Path(), "-f", "conf"}, port_);
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
