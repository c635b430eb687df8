# SPDX-License-Identifier: Apache-2.0
# frozen_string_literal: true

# The daemon must be root to see other users' processes: sudo brew services start meridal
class Meridal < Formula
  desc "System monitor daemon and its client on the command line"
  homepage "https://meridal.example/"
  license "Apache-2.0"
  head "https://meridal.example/meridal.git", branch: "main"

  depends_on "asio" => :build
  depends_on "cli11" => :build
  depends_on "cmake" => :build
  depends_on "fmt" => :build
  depends_on "lowdown" => :build
  depends_on "ninja" => :build
  depends_on "nlohmann-json" => :build
  depends_on "spdlog" => :build
  depends_on "cpp-httplib" # of meridal-exporter alone: what is root loads nothing of Homebrew's
  depends_on macos: :ventura

  def install
    system "cmake", "-S", ".", "-B", "build", "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
           "-DMERIDAL_TESTS=OFF", "-DMERIDAL_UNITY=ON", "-DMERIDAL_WERROR=OFF",
           "-DCMAKE_INSTALL_LIBEXECDIR=libexec", *std_cmake_args
    system "cmake", "--build", "build"
    # Not the property list of launchd, which service below makes another of.
    %w[daemon client exporter documents].each do |component|
      system "cmake", "--install", "build", "--component", component
    end
  end

  service do
    run opt_libexec/"meridald"
    keep_alive true
    process_type :interactive
    require_root true
    error_log_path var/"log/meridald.log"
  end

  def caveats
    <<~EOS
      The daemon runs as root from a folder that whoever installed it may write. On a Mac of several
      people install it as packaging/macos/README.md says. What was recorded outlives this formula:
        /Library/Application Support/Meridal 6, /Library/Logs/Meridal
    EOS
  end

  test do
    assert_match version.to_s, shell_output("#{bin}/meridalctl --version") unless build.head?
    daemon = spawn(libexec/"meridald", "--root", testpath/"root", err: testpath/"errors")
    begin
      socket = testpath/"root/run/daemon.sock"
      sleep 0.2 until socket.exist?
      assert_match "answers", shell_output("#{bin}/meridalctl --socket #{socket} ping")
    ensure
      Process.kill("TERM", daemon)
      Process.wait(daemon)
    end
  end
end
