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

// NAME.pem with NAME.key, signed by itself unless the further words name an authority.
void MakeCertificate(const TempFolder& folder, const std::string& name, const std::string& more) {
  const std::string command = "cd '" + folder.Path() +
                              "' && openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 "
                              "-nodes -days 2 -subj /CN=" +
                              name + " -keyout " + name + ".key -out " + name + ".pem " + more +
                              " >openssl.log 2>&1";
  EXPECT_EQ(std::system(command.c_str()), 0);
}

// Names in the settings are below the server's own folder.
constexpr const char* kNginxSettings = R"(
daemon off; master_process off; pid pid; error_log log;
events {}
http {
  access_log off; sendfile on; gzip off;
  client_body_temp_path body; proxy_temp_path proxy; fastcgi_temp_path fastcgi;
  uwsgi_temp_path uwsgi; scgi_temp_path scgi;
  ssl_certificate server.pem; ssl_certificate_key server.key;
  server {
    include places;
    location /private/ {
      auth_basic closed; auth_basic_user_file users;
      rewrite ^/private/(.*)$ /$1 break;
    }
    location /moved/ { rewrite ^/moved/(.*)$ /$1 redirect; }
    location = /echo {
      proxy_set_header X-Body $request_body;
      proxy_pass http://$server_addr:$server_port/posted;
    }
    location = /posted { return 200 $request_method:$http_x_body$http_x_own; }
  }
}
)";

constexpr const char* kApacheSettings = R"(
ServerName 127.0.0.1
KeepAlive Off
DefaultRuntimeDir .
PidFile pid
ErrorLog log
Mutex file:.
<Location "/">
  AuthType Digest
  AuthName closed
  AuthUserFile users
  Require valid-user
</Location>
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

WebServer::WebServer() : port_(FreePort()) {}

void WebServer::Start() {
  process_ = Spawn(command_);
  for (int i = 0; i < kStartAttempts; ++i) {
    if (Listens(port_)) return;
    if (waitpid(process_, nullptr, WNOHANG) != 0) {
      process_ = -1;
      break;
    }
    const timespec pause = {0, 5'000'000};
    nanosleep(&pause, nullptr);
  }
  ADD_FAILURE() << command_[0] << " does not serve";
}

void WebServer::Kill() {
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  waitpid(std::exchange(process_, -1), nullptr, 0);
}

Nginx::Nginx(const std::string& served_folder)
    : secure_address_("127.0.0.1:" + std::to_string(FreePort())) {
  MakeCertificate(settings_, "authority", "");
  MakeCertificate(settings_, "other", "");
  MakeCertificate(settings_, "server",
                  "-CA authority.pem -CAkey authority.key -addext subjectAltName=IP:127.0.0.1");
  settings_.Write("users", "user:{PLAIN}secret\n");
  settings_.Write("conf", kNginxSettings);
  settings_.Write("places", "listen " + Address() + "; listen " + secure_address_ + " ssl; root " +
                                served_folder + ";");
  command_ = {"/usr/sbin/nginx", "-p", settings_.Path(), "-c", "conf", "-e", "log"};
  Start();
}

std::string Nginx::SecureUrl(const std::string& name) const {
  return "https://" + secure_address_ + "/" + name;
}

// Started by root it serves as nobody, who must be able to read.
ApacheDigest::ApacheDigest(const std::string& served_folder) {
  chmod(settings_.Path().c_str(), 0755);
  chmod(served_folder.c_str(), 0755);
  settings_.Write("users",
                  "user:closed:16140f1f49c4852658213c3851021fda\n");  // MD5 of user:closed:secret
  settings_.Write("conf", ApacheModules() + kApacheSettings + "Listen " + Address() +
                              "\nDocumentRoot " + served_folder + "\n");
  command_ = {"/usr/sbin/apache2", "-X", "-d", settings_.Path(), "-f", "conf"};
  Start();
}

Tinyproxy::Tinyproxy() {
  settings_.Write("conf", "Listen 127.0.0.1\nPort " + std::to_string(port_) +
                              "\nTimeout 60\nMaxClients 20\nLogFile \"" + settings_.Path("log") +
                              "\"\nAllow 127.0.0.1\nBasicAuth user secret\n");
  command_ = {"tinyproxy", "-d", "-c", settings_.Path("conf")};
  Start();
}

}  // namespace qvx::test
