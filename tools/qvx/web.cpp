#include "web.h"

#include <qvx/curl_binding.h>
#include <qvx/debug_output.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <string_view>
#include <utility>

#include "command.h"
#include "picture_file.h"

namespace qvx::tool {
namespace {

constexpr long kBasicOrDigest = 1 | 2;
constexpr const char* kSystemAuthorities = "/etc/ssl/certs/ca-certificates.crt";
constexpr std::chrono::seconds kPatience{30};

// The proxy types as the library takes them.
constexpr std::array<std::pair<std::string_view, long>, 5> kProxyTypes{
    {{"http", 0}, {"socks4", 4}, {"socks5", 5}, {"socks4a", 6}, {"socks5h", 7}}};

bool IsSecure(const std::string& url) {
  return CLI::detail::to_lower(url.substr(0, 8)) == "https://";
}

bool IsWebUrl(const std::string& url) {
  return IsSecure(url) || CLI::detail::to_lower(url.substr(0, 7)) == "http://";
}

// Scheme, host and port as they stand.
std::string ServerOf(const std::string& url) {
  return url.substr(0, url.find_first_of("/?#", url.find("://") + 3));
}

void RequireWebUrl(const std::string& url) {
  const auto is_blank = [](unsigned char c) { return c <= ' '; };
  if (!IsWebUrl(url) || ServerOf(url).size() == url.find("://") + 3 ||
      std::any_of(url.begin(), url.end(), is_blank))
    throw CommandError("no address of the web: " + url);
}

std::pair<std::string, std::string> SplitUser(const std::string& text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos) return {text, ""};
  return {text.substr(0, colon), text.substr(colon + 1)};
}

// What a line of the library's log says about a failure, or empty.
std::string ReasonIn(std::string_view line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.remove_suffix(1);
  const auto behind = [&](std::string_view mark) {
    const std::size_t place = line.rfind(mark);
    return std::string(place == line.npos ? "" : line.substr(place + mark.size()));
  };
  if (const std::string status = behind("> response: "); !status.empty())
    return "the server answers with status " + status;
  for (const char* mark : {"> open failed: ", "open failed, err is:"})
    if (std::string reason = behind(mark); !reason.empty()) return reason;
  if (line.find("CustomCallback failed, res=") == line.npos) return "";
  return behind(": ");
}

// Hands a transfer's bytes on and ends it where nothing comes for long.
class Receiver : public IHttpDataCallback {
 public:
  Receiver(const Web::Take& take, const Web::WantsStop& wants_stop)
      : take_(take), wants_stop_(wants_stop) {}

  unsigned int OnHttpDataRecvCallback(const unsigned char* data, unsigned int size,
                                      std::uint64_t) override {
    last_ = Clock::now();
    ended_ = ended_ || !take_(data, size);
    return ended_ ? 0 : size;
  }
  int OnHttpDataProgressCallback(std::uint64_t) override {
    stalled_ = Clock::now() - last_ > kPatience;
    ended_ = ended_ || wants_stop_();
    return ended_ || stalled_ ? 1 : 0;
  }

  bool Ended() const { return ended_; }
  bool Stalled() const { return stalled_; }

 private:
  using Clock = std::chrono::steady_clock;

  const Web::Take& take_;
  const Web::WantsStop& wants_stop_;
  Clock::time_point last_ = Clock::now();
  bool ended_ = false;
  bool stalled_ = false;
};

}  // namespace

void AddWebOptions(CLI::App& command, WebOptions& options) {
  command.add_option("URL", options.url, "Address of the file, http or https")->required();
  command.add_option("--ca", options.authority,
                     "Certificates (PEM) to check the server by, instead of the system's");
  command.add_flag("--insecure", options.insecure, "Take any server for the right one");
  command.add_option("-u,--user", options.user, "USER:PASSWORD for the server");
  command.add_option("--proxy", options.proxy,
                     "[TYPE://][USER:PASSWORD@]HOST:PORT; http, socks4, socks4a, socks5, socks5h");
  command.add_option("-H,--header", options.header, "One more header line, \"Name: value\"");
}

Web::Web(const WebOptions& options) {
  RequireWebUrl(options.url);
  connection_.url.Set(options.url.c_str());
  ReadAuthority(options);
  if (!options.header.empty() && (options.header.find(':') == std::string::npos ||
                                  options.header.find_first_of("\r\n") != std::string::npos))
    throw CommandError("no header line: " + options.header);
  connection_.extraHeader.Set(options.header.c_str());
  if (!options.user.empty()) {
    const auto [name, password] = SplitUser(options.user);
    connection_.authType = kBasicOrDigest;
    connection_.userName.Set(name.c_str());
    connection_.password.Set(password.c_str());
  }
  if (!options.proxy.empty()) SetProxy(options.proxy);
  if (InitSysLibCURL() == 0) throw CommandError("libcurl.so.4 is missing or too old");
  DbgOutputAddCallback(&Web::OnLog, this);
}

Web::~Web() {
  CloseHttpFile(&file_);
  DbgOutputDelCallback(&Web::OnLog);
  DeInitSysLibCURL();
}

void Web::ReadAuthority(const WebOptions& options) {
  if (options.insecure) return;
  const bool told = !options.authority.empty();
  std::error_code none;
  if (!told && !std::filesystem::exists(kSystemAuthorities, none)) {
    if (!IsSecure(options.url)) return;
    throw CommandError("this system has no certificates to check servers by (see --ca)");
  }
  const std::string path = told ? options.authority : kSystemAuthorities;
  const std::string text = ReadText(path);
  if (text.find("-----BEGIN CERTIFICATE-----") == std::string::npos)
    throw CommandError("no certificate in " + path);
  connection_.caCertificate.SetBuffer(text.data(), static_cast<unsigned int>(text.size()));
}

void Web::SetProxy(const std::string& text) {
  std::string rest = text;
  std::string type = "http";
  if (const std::size_t end = text.find("://"); end != std::string::npos) {
    type = text.substr(0, end);
    rest = text.substr(end + 3);
  }
  const auto found = std::find_if(kProxyTypes.begin(), kProxyTypes.end(),
                                  [&](const auto& known) { return known.first == type; });
  if (const std::size_t at = rest.rfind('@'); at != std::string::npos) {
    const auto [name, password] = SplitUser(rest.substr(0, at));
    connection_.proxyUserName.Set(name.c_str());
    connection_.proxyPassword.Set(password.c_str());
    rest = rest.substr(at + 1);
  }
  if (found == kProxyTypes.end() || rest.empty()) throw CommandError("no proxy: " + text);
  connection_.useProxy = 1;
  connection_.proxyType = found->second;
  connection_.proxy.Set(rest.c_str());
}

std::uint64_t Web::Open() const {
  const tagMTDOWNLOAD_BLOCK& c = connection_;
  CloseHttpFile(&file_);
  if (OpenHttpFile(&file_, c.url.GetString(), &c.caCertificate, nullptr, c.extraHeader.GetString(),
                   c.authType, c.userName.GetString(), c.password.GetString(), c.useProxy,
                   c.proxyType, c.proxy.GetString(), c.proxyUserName.GetString(),
                   c.proxyPassword.GetString()) == 0)
    Fail(std::string("cannot open ") + c.url.GetString());
  return file_.fileSize;
}

void Web::Stream(std::uint64_t start, const Take& take, const WantsStop& wants_stop) {
  Forget();
  Receiver receiver(take, wants_stop);
  ReadHttpBodyWithCustomCallback(&file_, start, &receiver, 0);
  if (receiver.Ended()) return Forget();
  if (receiver.Stalled()) throw CommandError("the server sends nothing any more");
  if (!Reason().empty()) Fail(std::string("cannot read ") + connection_.url.GetString());
}

bool Web::GivesRanges(std::uint64_t size) {
  bool came = false;
  try {
    Stream(
        size - 1,
        [&](const unsigned char*, unsigned int) {
          came = true;
          return false;
        },
        [] { return false; });
  } catch (const CommandError&) {
    return false;
  }
  return came;
}

std::string Web::Get(const std::string& url) const {
  RequireWebUrl(url);
  const tagMTDOWNLOAD_BLOCK& c = connection_;
  const bool same = ServerOf(url) == ServerOf(c.url.GetString());
  CBaseBuffer body;
  if (PerformHttpGetCommand(url.c_str(), &c.caCertificate, nullptr,
                            same ? c.extraHeader.GetString() : nullptr, same ? c.authType : 0,
                            c.userName.GetString(), c.password.GetString(), c.useProxy, c.proxyType,
                            c.proxy.GetString(), c.proxyUserName.GetString(),
                            c.proxyPassword.GetString(), &body) == 0)
    Fail("cannot open " + url);
  return {reinterpret_cast<const char*>(body.GetBuffer()), body.GetAvailSize()};
}

std::string Web::Post(CBaseBuffer& data) const {
  const tagMTDOWNLOAD_BLOCK& c = connection_;
  CBaseBuffer body;
  if (PerformHttpPostCommand(c.url.GetString(), &c.caCertificate, nullptr,
                             c.extraHeader.GetString(), c.authType, c.userName.GetString(),
                             c.password.GetString(), c.useProxy, c.proxyType, c.proxy.GetString(),
                             c.proxyUserName.GetString(), c.proxyPassword.GetString(), &data,
                             &body) == 0)
    Fail(std::string("cannot post to ") + c.url.GetString());
  return {reinterpret_cast<const char*>(body.GetBuffer()), body.GetAvailSize()};
}

void Web::Fill(tagMTDOWNLOAD_BLOCK& block) const {
  const CBaseBuffer& certificate = connection_.caCertificate;
  if (certificate.GetAvailSize() > 0)
    block.caCertificate.BindBuffer(certificate.GetBuffer(), certificate.GetAvailSize());
  block.extraHeader = connection_.extraHeader;
  block.authType = connection_.authType;
  block.userName = connection_.userName;
  block.password = connection_.password;
  block.useProxy = connection_.useProxy;
  block.proxyType = connection_.proxyType;
  block.proxy = connection_.proxy;
  block.proxyUserName = connection_.proxyUserName;
  block.proxyPassword = connection_.proxyPassword;
  block.url = connection_.url;
}

std::string Web::Reason() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return reason_;
}

void Web::Forget() {
  const std::lock_guard<std::mutex> guard(mutex_);
  reason_.clear();
}

void Web::Fail(const std::string& what) const {
  const std::string reason = Reason();
  throw CommandError(reason.empty() ? what : what + ": " + reason);
}

int Web::OnLog(void* context, int, const char* line, int length) {
  const auto* web = static_cast<Web*>(context);
  std::string reason = ReasonIn({line, static_cast<std::size_t>(length)});
  if (reason.empty()) return 0;
  const std::lock_guard<std::mutex> guard(web->mutex_);
  web->reason_ = std::move(reason);
  return 0;
}

std::string NameInUrl(const std::string& url) {
  const std::size_t server = ServerOf(url).size();
  const std::string path = url.substr(server, url.find_first_of("?#", server) - server);
  const std::string last = path.substr(path.rfind('/') + 1);
  std::string name;
  for (std::size_t i = 0; i < last.size(); ++i) {
    const std::string digits = last.substr(i + 1, 2);
    const bool coded = last[i] == '%' && digits.size() == 2 &&
                       digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    name += coded ? static_cast<char>(std::stoi(digits, nullptr, 16)) : last[i];
    if (coded) i += 2;
  }
  const bool usable = name != "." && name != ".." && name.find('/') == std::string::npos &&
                      name.find('\0') == std::string::npos;
  return usable ? name : "";
}

}  // namespace qvx::tool
