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

class ServerProcess {
 public:
  // Starts the program and waits until something listens on the port.
  void Start(const std::vector<std::string>& command, std::uint16_t port);
  // Ends it at once, with all its connections.
  void Kill();
  ServerProcess() = default;
  ~ServerProcess() { Kill(); }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

 private:
  pid_t process_ = -1;
};

// nginx, over HTTP and over HTTPS with a certificate of an authority of its own. Below
// /private/ it asks for Basic authentication (user:secret), /moved/ leads to the same name
// without it, and /echo answers a post of one short line with "POST:" and that line.
class Nginx {
 public:
  explicit Nginx(const std::string& served_folder);

  std::string Url(const std::string& name) const;
  std::string SecureUrl(const std::string& name) const;
  // PEM texts: the authority of the server's certificate, and another that has no part in it.
  std::string Authority() const;
  std::string OtherAuthority() const;

  void Start();
  void Kill() { process_.Kill(); }

 private:
  TempFolder settings_;
  std::uint16_t port_;
  std::uint16_t secure_port_;
  ServerProcess process_;
};

// Apache, which asks for Digest authentication (user:secret).
class ApacheDigest {
 public:
  explicit ApacheDigest(const std::string& served_folder);
  std::string Url(const std::string& name) const;

 private:
  TempFolder settings_;
  std::uint16_t port_;
  ServerProcess process_;
};

// A forward proxy that asks for a password (user:secret).
class Tinyproxy {
 public:
  Tinyproxy();
  std::string Address() const;

 private:
  TempFolder settings_;
  std::uint16_t port_;
  ServerProcess process_;
};

}  // namespace qvx::test
