// Real web servers for tests: each a process of its own on a free port of 127.0.0.1, with its
// settings in a temporary folder, ended by its id. They serve the files of one folder. A program
// that is missing or doesn't start fails the test.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/temp_folder.h"

namespace qvx::test {

class WebServer {
 public:
  ~WebServer() { Kill(); }
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  std::string Address() const { return "127.0.0.1:" + std::to_string(port_); }
  std::string Url(const std::string& name) const { return "http://" + Address() + "/" + name; }

  // Starts the program, again after a kill, and waits until something listens on its port.
  void Start();
  // Ends it at once, with all its connections.
  void Kill();

 protected:
  WebServer();

  TempFolder settings_;
  std::uint16_t port_;
  std::vector<std::string> command_;

 private:
  pid_t process_ = -1;
};

// nginx, over HTTP and over HTTPS with a certificate of an authority of its own. Below
// /private/ it asks for Basic authentication (user:secret), /moved/ leads to the same name
// without it, and /echo answers a post of one short line with "POST:" and that line.
class Nginx : public WebServer {
 public:
  explicit Nginx(const std::string& served_folder);

  std::string SecureUrl(const std::string& name) const;
  // PEM texts: the authority of the server's certificate, and another that has no part in it.
  std::string Authority() const { return ReadWhole(settings_.Path("authority.pem")); }
  std::string OtherAuthority() const { return ReadWhole(settings_.Path("other.pem")); }

 private:
  std::string secure_address_;
};

// Apache, which asks for Digest authentication (user:secret).
class ApacheDigest : public WebServer {
 public:
  explicit ApacheDigest(const std::string& served_folder);
};

// A forward proxy that asks for a password (user:secret).
class Tinyproxy : public WebServer {
 public:
  Tinyproxy();
};

}  // namespace qvx::test
