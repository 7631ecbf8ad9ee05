#include "QuenHost/CLS_PoolScope.h"
#include "QuenHost/CLS_TraceFile.h"
#include "examples/trace_scenes/Scenes.h"
#include "examples/trace_scenes/TracedPool.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>

namespace
{
struct ST_SceneOptions
{
    std::string m_strScene;
    std::string m_strTrace;
    std::string m_strLibrary = CLS_PoolLibrary::GetUsualName();
};

void DescribeOptions(CLI::App& _app, ST_SceneOptions& _stOptions)
{
    _app.add_option("scene", _stOptions.m_strScene, "What to record")
        ->check(CLI::IsMember(GetScenes()))
        ->required();
    _app.add_option("trace", _stOptions.m_strTrace, "The file for the trace")->required();
    _app.add_option("--library", _stOptions.m_strLibrary, "The pool library")->capture_default_str();
    _app.failure_message([](const CLI::App* _pApp, const CLI::Error& _error)
                         { return "trace_scenes: " + CLI::FailureMessage::simple(_pApp, _error); });
}

void Record(const ST_SceneOptions& _stOptions)
{
    const std::shared_ptr<CLS_TraceFile> pTrace =
        CLS_TraceFile::Create(_stOptions.m_strTrace, "trace_scenes");
    CLS_PoolScope clsPool{CLS_PoolLibrary(_stOptions.m_strLibrary), ST_ScopeOptions{{}, pTrace}};
    GetScenes().at(_stOptions.m_strScene)(clsPool, CLS_TracedPool(clsPool.GetFunctions(), pTrace));
    clsPool.End();
    pTrace->Close();
}
} // namespace

// Only a stream that fails while it prints an error may throw here.
int main(int argc, char** argv) // NOLINT(bugprone-exception-escape)
{
    ST_SceneOptions stOptions;
    CLI::App app(
        "Records what the pool does in a scene, as a trace that Perfetto and chrome://tracing open.");
    try
    {
        DescribeOptions(app, stOptions);
        app.parse(argc, argv);
        Record(stOptions);
        return 0;
    }
    catch (const CLI::ParseError& error)
    {
        return app.exit(error) == 0 ? 0 : 2;
    }
    catch (const std::exception& error)
    {
        std::fprintf(stderr, "trace_scenes: %s\n", error.what());
        return 1;
    }
}
