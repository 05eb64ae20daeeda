// Runs the kelvarion program in a directory and collects what it printed and
// how it ended.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// Console texts that every run prints.
inline const std::string BANNER =
    "**************************************\n"
    "****        Kelvarion v2.1        ****\n"
    "****   Recalage et compositage    ****\n"
    "****        24 Avril 2002         ****\n"
    "**************************************\n"
    "****        Portage Linux         ****\n"
    "****    d'images astronomiques    ****\n"
    "**************************************\n"
    "\n";
inline const std::string FATAL = "Erreur fatale, appuyez sur entree.\nFatal error. Press return.\n";
inline const std::string END_OF_RUN =
    "\nTemps pour l'ensemble du calcul: # secondes\nFin de l'execution de Kelvarion\n";

inline std::string ParseEcho(const std::string& scriptPath, const std::string& echo) {
  return "Lecture des parametres\n\nFichier de script : " + scriptPath + "\n\n\n" + echo;
}

struct ProcessResult {
  std::string output;  // standard output, byte for byte
  int exitCode;        // -1 when ended by a signal
  int signal;          // 0 when it exited
};

inline std::string ReadWholeFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

inline void WriteWholeFile(const std::string& path, const std::string& bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
}

inline bool FileExists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// A fresh empty directory under the system's temporary directory.
inline std::string MakeTempDirectory() {
  std::string pattern = "/tmp/kelvarion_test_XXXXXX";
  std::vector<char> buffer(pattern.begin(), pattern.end());
  buffer.push_back('\0');
  const char* made = mkdtemp(buffer.data());
  return made != nullptr ? std::string(made) : std::string();
}

inline void RemoveDirectory(const std::string& directory) {
  std::string command = "rm -rf '" + directory + "'";
  if (system(command.c_str()) != 0) return;
}

// Runs `program args...` with the working directory `directory`, standard
// input from `input` (written to a file first; empty means end of input at once).
inline ProcessResult RunProgram(const std::string& program, const std::vector<std::string>& args,
                                const std::string& directory, const std::string& input = "") {
  std::string outPath = directory + "/.stdout";
  std::string inPath = directory + "/.stdin";
  WriteWholeFile(inPath, input);
  pid_t child = fork();
  if (child == 0) {
    if (chdir(directory.c_str()) != 0) _exit(127);
    int in = open(inPath.c_str(), O_RDONLY);
    int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    dup2(in, 0);
    dup2(out, 1);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ProcessResult result;
  result.output = ReadWholeFile(outPath);
  result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  unlink(outPath.c_str());
  unlink(inPath.c_str());
  return result;
}

inline ProcessResult RunKelvarionIn(const std::string& directory, const std::vector<std::string>& args,
                                    const std::string& input = "") {
  return RunProgram(KELVARION_BINARY, args, directory, input);
}

// The processor-time numbers are the only bytes of the console that vary
// between runs: replace them by "#".
inline std::string MaskTimes(const std::string& output) {
  static const char* const labels[] = {"Temps total de calcul pour l'image: ",
                                       "Temps pour l'ensemble du calcul: ", "(Temps Phase1 : "};
  std::string masked;
  size_t at = 0;
  while (at < output.size()) {
    size_t digits = std::string::npos;
    for (const char* label : labels) {
      std::string text = label;
      if (output.compare(at, text.size(), text) == 0) digits = at + text.size();
    }
    if (digits == std::string::npos) {
      masked += output[at++];
      continue;
    }
    masked.append(output, at, digits - at);
    masked += '#';
    at = digits;
    while (at < output.size() && output[at] >= '0' && output[at] <= '9') at++;
  }
  return masked;
}
