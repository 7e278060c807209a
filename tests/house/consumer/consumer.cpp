// A program of somebody else's: only public headers, only the installed library.
#include <qvx/common.h>

#include <cstdio>

int main(int, char** arguments) {
  CBaseStringA text;
  text.Format("found %s", arguments[1]);
  CBaseStringW path;
  NativePathToLibraryW("/a/b", &path);
  unsigned char bytes[2] = {0xAB, 0xCD};
  CBaseStringA digits;
  BufferToHexStringA(bytes, 2, 1, 0, &digits);
  std::printf("%s\n", text.GetString());
  return path.Equal(u"C:\\a\\b") == 1 && digits.Equal("ABCD") == 1 ? 0 : 1;
}
