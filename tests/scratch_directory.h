// A fresh directory per test for the files the code under test reads and writes.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <dirent.h>
#include <stdlib.h>
#include <string>
#include <unistd.h>
#include <vector>

typedef std::vector<unsigned char> Bytes;

// Returns the directory's path with a trailing slash.
inline std::string MakeScratchDirectory() {
  std::string pattern = ::testing::TempDir() + "kelvarion_test_XXXXXX";
  return std::string(mkdtemp(&pattern[0])) + "/";
}

inline std::vector<std::string> ListDirectory(const std::string& directory) {
  std::vector<std::string> names;
  DIR* dir = opendir(directory.c_str());
  while (dirent* entry = readdir(dir)) {
    std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  closedir(dir);
  return names;
}

// Removes the files in the directory (one level deep) and the directory.
inline void RemoveScratchDirectory(const std::string& directory) {
  for (const std::string& name : ListDirectory(directory)) {
    std::string path = directory + name;
    if (unlink(path.c_str()) != 0) rmdir(path.c_str());
  }
  rmdir(directory.c_str());
}

inline Bytes ReadFileBytes(const std::string& path) {
  Bytes bytes;
  FILE* file = fopen(path.c_str(), "rb");
  if (file == nullptr) return bytes;
  int c;
  while ((c = fgetc(file)) != EOF) bytes.push_back((unsigned char)c);
  fclose(file);
  return bytes;
}

inline void WriteFileBytes(const std::string& path, const Bytes& bytes) {
  FILE* file = fopen(path.c_str(), "wb");
  fwrite(bytes.data(), 1, bytes.size(), file);
  fclose(file);
}
