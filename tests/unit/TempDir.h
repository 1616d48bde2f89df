#pragma once

// A fresh folder for one test's files, removed with it.

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace TestFiles {

class TempDir {
  public:
   TempDir() {
      char tmpl[] = "/tmp/nimbal-test-XXXXXX";
      // Never a shared folder in its place: the destructor removes whatever it names.
      if (!::mkdtemp(tmpl)) {
         throw std::runtime_error("cannot make a folder for the test's files");
      }
      path_ = tmpl;
   }
   ~TempDir() {
      std::error_code ec;
      std::filesystem::remove_all(path_, ec);
   }
   TempDir(TempDir const&) = delete;
   TempDir& operator=(TempDir const&) = delete;

   std::string const& path() const { return path_; }
   std::string file(std::string const& name) const { return path_ + "/" + name; }

  private:
   std::string path_;
};

}  // namespace TestFiles
