// The tool template as a client meets it, through the region statistics tool: the order of
// the events of Run, the two times, the run status of a failure, Terminate, the common
// properties with their state IDs, the exposed property names, the top records and Clone.
#include <chrono>
#include <thread>

#include "tool/RegionStatisticsToolFixture.h"

namespace tessaly::test {
namespace {

using namespace std::chrono_literals;

class ToolTemplateTest : public ToolFixture {};

constexpr HRESULT kNoInputImage = static_cast<HRESULT>(e_LuxOperator_NoInputImage);

std::vector<DISPID> Ids(const std::vector<ToolEvent>& log) {
    std::vector<DISPID> ids;
    for (const ToolEvent& event : log) ids.push_back(event.id);
    return ids;
}

TEST_F(ToolTemplateTest, RunFiresPreRunThenTheChangesThenPostRunAndAnswersSOkForAFailureToo) {
    std::mt19937 random(7);
    auto tool = NewTool();
    auto persist = As<ILuxPersistArchive>(tool.get());
    ASSERT_EQ(persist->put_HasChanged(VARIANT_FALSE), S_OK);
    auto log = ListenTool(tool.get());
    const std::vector<DISPID> expected{luxToolEvents_PreRun, luxToolEvents_Change, luxToolEvents_Change,
                                       luxToolEvents_PostRun};

    for (bool withImage : {false, true}) {
        SCOPED_TRACE(withImage);
        ComPtr<ILuxImage8Grey> image;
        if (withImage) {
            image = RandomImage8(16, 12, random);
            ASSERT_EQ(tool->putref_InputImage(As<ILuxImage>(image.get()).get()), S_OK);
        }
        log->clear();
        ASSERT_EQ(As<ILuxTool>(tool.get())->Run(), S_OK);
        ASSERT_EQ(Ids(*log), expected);
        EXPECT_EQ((*log)[1].stateId, luxState_MoreThanOneStateIDChanged);
        EXPECT_EQ((*log)[1].areas, luxFA_Tool_Results | luxFA_Tool_LastRunRecord);
        EXPECT_EQ((*log)[1].value.vt(), VT_EMPTY);
        EXPECT_EQ((*log)[2].stateId, luxTool_RunStatus);
        EXPECT_EQ((*log)[2].areas, luxFA_Tool_Results);
        // The Change announces the status the tool now answers.
        ASSERT_EQ((*log)[2].value.vt(), VT_DISPATCH);
        auto announced = As<ILuxRunStatus>((*log)[2].value.get().pdispVal);
        EXPECT_EQ(announced.get(), StatusOf(tool.get()).get());
        EXPECT_EQ(Read(announced.get()).code, withImage ? S_OK : kNoInputImage);
        if (withImage) {
            ASSERT_EQ(tool->putref_InputImage(nullptr), S_OK);
        }
    }
    // A run changes results, not configuration: the setters above marked it, the runs not.
    ASSERT_EQ(persist->put_HasChanged(VARIANT_FALSE), S_OK);
    ASSERT_EQ(As<ILuxTool>(tool.get())->Run(), S_OK);
    VARIANT_BOOL changed = VARIANT_TRUE;
    ASSERT_EQ(persist->get_HasChanged(&changed), S_OK);
    EXPECT_EQ(changed, VARIANT_FALSE);
}

TEST_F(ToolTemplateTest, TimeCountsTheChangeEventsButNeitherPreRunNorPostRun) {
    std::mt19937 random(8);
    auto tool = NewTool();
    auto image = RandomImage8(32, 32, random);
    double timeSeenInPostRun = -1;
    auto log = ListenTool(tool.get(), [&](DISPID id) {
        if (id == luxToolEvents_PreRun) std::this_thread::sleep_for(60ms);
        if (id == luxToolEvents_Change) std::this_thread::sleep_for(10ms);
        if (id == luxToolEvents_PostRun) {
            StatusOf(tool.get())->get_Time(&timeSeenInPostRun);
            std::this_thread::sleep_for(40ms);
        }
    });
    for (bool withImage : {true, false}) {
        SCOPED_TRACE(withImage);
        ASSERT_EQ(tool->putref_InputImage(withImage ? As<ILuxImage>(image.get()).get() : nullptr), S_OK);
        const StatusValues status = RunAndRead(tool.get());
        EXPECT_EQ(status.code, withImage ? S_OK : kNoInputImage);
        EXPECT_GE(status.timeRaw, 0.0);
        EXPECT_LT(status.timeRaw, 60.0);                 // PreRun's sleep is not in it
        EXPECT_GE(status.time - status.timeRaw, 20.0);   // the two Change events are
        EXPECT_EQ(status.time, timeSeenInPostRun);       // PostRun's sleep is not
    }
}

TEST_F(ToolTemplateTest, EachRunMakesANewStatusAndAFailureKeepsItsCodeTextAndSource) {
    std::mt19937 random(9);
    auto tool = NewTool();
    // Before any run: a pass with no time, the same object on every read.
    auto before = StatusOf(tool.get());
    EXPECT_EQ(before.get(), StatusOf(tool.get()).get());
    const StatusValues none = Read(before.get());
    EXPECT_EQ(none.code, S_OK);
    EXPECT_EQ(none.text, "");
    EXPECT_EQ(none.timeRaw, 0.0);
    EXPECT_EQ(none.time, 0.0);

    ASSERT_EQ(As<ILuxTool>(tool.get())->Run(), S_OK);
    auto failed = StatusOf(tool.get());
    EXPECT_NE(failed.get(), before.get());
    const StatusValues failure = Read(failed.get());
    EXPECT_EQ(failure.code, kNoInputImage);
    EXPECT_EQ(failure.text, "The tool has no input image.");
    EXPECT_EQ(failure.source, "Run");
    EXPECT_GE(failure.time, failure.timeRaw);

    auto image = RandomImage8(8, 8, random);
    ASSERT_EQ(tool->putref_InputImage(As<ILuxImage>(image.get()).get()), S_OK);
    ASSERT_EQ(As<ILuxTool>(tool.get())->Run(), S_OK);
    auto passed = StatusOf(tool.get());
    EXPECT_NE(passed.get(), failed.get());
    const StatusValues pass = Read(passed.get());
    EXPECT_EQ(pass.code, S_OK);
    EXPECT_EQ(pass.text, "");
    EXPECT_EQ(pass.source, "");
    // The status kept from the failed run still tells of it.
    EXPECT_EQ(Read(failed.get()).code, kNoInputImage);
    EXPECT_EQ(Read(before.get()).code, S_OK);

    ExpectNullOut(As<ILuxTool>(tool.get())->get_RunStatus(nullptr), "get_RunStatus");
}

TEST_F(ToolTemplateTest, TerminateFiresTerminatingAloneAndTheToolRunsOn) {
    std::mt19937 random(10);
    auto tool = NewTool();
    auto log = ListenTool(tool.get());
    ASSERT_EQ(As<ILuxTool>(tool.get())->Terminate(), S_OK);
    EXPECT_EQ(Ids(*log), std::vector<DISPID>{luxToolEvents_Terminating});
    auto image = RandomImage8(8, 8, random);
    ASSERT_EQ(tool->putref_InputImage(As<ILuxImage>(image.get()).get()), S_OK);
    EXPECT_EQ(RunAndRead(tool.get()).code, S_OK);
}

TEST_F(ToolTemplateTest, CommonPropertiesAnnounceTheirStateIdsAndAreasOncePerChange) {
    auto tool = NewTool();
    auto base = As<ILuxTool>(tool.get());
    Bstr name;
    ASSERT_EQ(base->get_ToolName(name.Out()), S_OK);
    EXPECT_EQ(name.str(), "RegionStatisticsTool");
    Bstr progId;
    ASSERT_EQ(base->get_ControlProgID(progId.Out()), S_OK);
    EXPECT_EQ(progId.str(), "");
    LONG lastRun = 0, diag = -1, current = 0;
    ASSERT_EQ(base->get_LastRunRecordEnableBase(&lastRun), S_OK);
    ASSERT_EQ(base->get_LastRunRecordDiagEnableBase(&diag), S_OK);
    ASSERT_EQ(base->get_CurrentRecordEnableBase(&current), S_OK);
    EXPECT_EQ(lastRun, luxToolLastRunRecordAll);
    EXPECT_EQ(diag, luxToolLastRunRecordDiagNone);
    EXPECT_EQ(current, luxToolCurrentRecordAll);

    auto log = ListenTool(tool.get());
    ASSERT_EQ(base->put_ToolName(Bstr("Left gap").get()), S_OK);
    ASSERT_EQ(base->put_ToolName(Bstr("Left gap").get()), S_OK);  // the same: nothing
    ASSERT_EQ(base->put_ControlProgID(Bstr("Tessaly.Edit.1").get()), S_OK);
    ASSERT_EQ(base->put_LastRunRecordEnableBase(5), S_OK);
    ASSERT_EQ(base->put_LastRunRecordEnableBase(5), S_OK);
    ASSERT_EQ(base->put_LastRunRecordDiagEnableBase(-1), S_OK);
    ASSERT_EQ(base->put_CurrentRecordEnableBase(0), S_OK);
    ASSERT_EQ(log->size(), 5u);
    const std::pair<int32_t, int32_t> expected[] = {
        {luxTool_ToolName, luxFA_Tool_CurrentRecord},
        {luxTool_ControlProgID, luxFA_Misc},
        {0x101D004, luxFA_Tool_LastRunRecord},  // the state ID, not the DISPID 0x101D00C
        {0x101D005, luxFA_Tool_LastRunRecord},
        {0x101D006, luxFA_Tool_CurrentRecord},
    };
    for (size_t i = 0; i < 5; ++i) {
        EXPECT_EQ((*log)[i].id, luxToolEvents_Change);
        EXPECT_EQ((*log)[i].stateId, expected[i].first) << i;
        EXPECT_EQ((*log)[i].areas, expected[i].second) << i;
    }
    EXPECT_EQ(BstrView((*log)[0].value.get().bstrVal), "Left gap");
    EXPECT_EQ((*log)[2].value.get().lVal, 5);
    EXPECT_EQ((*log)[3].value.get().lVal, -1);

    ASSERT_EQ(base->get_ToolName(name.Out()), S_OK);
    EXPECT_EQ(name.str(), "Left gap");
    ASSERT_EQ(base->get_LastRunRecordEnableBase(&lastRun), S_OK);
    EXPECT_EQ(lastRun, 5);
}

TEST_F(ToolTemplateTest, ExposedPropertiesAreNewCollectionsOfTheToolsMemberNames) {
    auto tool = NewTool();
    auto base = As<ILuxTool>(tool.get());
    const auto names = [&](bool inputs) {
        ComPtr<ILuxStringCollection> collection;
        EXPECT_EQ(inputs ? base->get_ExposedInputProperties(collection.Out())
                         : base->get_ExposedOutputProperties(collection.Out()),
                  S_OK);
        std::vector<std::string> seen;
        LONG count = 0;
        EXPECT_EQ(collection->get_Count(&count), S_OK);
        for (LONG i = 0; i < count; ++i) {
            Bstr item;
            EXPECT_EQ(collection->get_Item(Variant(static_cast<int32_t>(i)).get(), item.Out()), S_OK);
            seen.push_back(item.str());
        }
        // A client may change what it was given; the tool's list stays.
        EXPECT_EQ(collection->Clear(), S_OK);
        return seen;
    };
    const std::vector<std::string> inputs{"InputImage", "Region"};
    const std::vector<std::string> outputs{"Area", "Mean", "StandardDeviation", "Min", "Max", "Median"};
    EXPECT_EQ(names(true), inputs);
    EXPECT_EQ(names(false), outputs);
    EXPECT_EQ(names(true), inputs);
    EXPECT_EQ(names(false), outputs);
    // Each name is a member a dispatch client reaches.
    auto dispatch = As<IDispatch>(tool.get());
    for (const auto* list : {&inputs, &outputs})
        for (const std::string& name : *list) {
            Bstr member(name);
            LPOLESTR names[] = {member.get()};
            DISPID id = DISPID_UNKNOWN;
            EXPECT_EQ(dispatch->GetIDsOfNames(GUID_NULL, names, 1, 0, &id), S_OK) << name;
        }
}

TEST_F(ToolTemplateTest, TopRecordsAreKeyedByTheToolNameAndHoldOnlyWhatTheMasksEnable) {
    std::mt19937 random(11);
    auto tool = NewTool();
    auto base = As<ILuxTool>(tool.get());
    auto image = RandomImage8(8, 8, random);
    ASSERT_EQ(tool->putref_InputImage(As<ILuxImage>(image.get()).get()), S_OK);
    ASSERT_EQ(base->put_ToolName(Bstr("Gap").get()), S_OK);
    ASSERT_EQ(base->Run(), S_OK);
    for (bool current : {true, false}) {
        SCOPED_TRACE(current);
        ASSERT_EQ(current ? base->put_CurrentRecordEnableBase(0) : base->put_LastRunRecordEnableBase(0), S_OK);
        ComPtr<ILuxRecord> record;
        ASSERT_EQ(current ? base->CreateCurrentRecord(record.Out()) : base->CreateLastRunRecord(record.Out()), S_OK);
        Bstr key;
        LuxRecordTypeConstants type{};
        LuxRecordUsageConstants usage{};
        LONG count = -1;
        ASSERT_EQ(record->get_RecordKey(key.Out()), S_OK);
        ASSERT_EQ(record->get_RecordType(&type), S_OK);
        ASSERT_EQ(record->get_RecordUsage(&usage), S_OK);
        ASSERT_EQ(record->get_Count(&count), S_OK);
        EXPECT_EQ(key.str(), "Gap");
        EXPECT_EQ(type, luxRecordTypeToolDefined);
        EXPECT_EQ(usage, luxRecordUsageTool);
        EXPECT_EQ(count, 0);
    }
    ExpectNullOut(base->CreateCurrentRecord(nullptr), "CreateCurrentRecord");
    ExpectNullOut(base->CreateLastRunRecord(nullptr), "CreateLastRunRecord");
}

TEST_F(ToolTemplateTest, CloneCopiesTheCommonStateAndGivesTheCopyItsOwnRunStatus) {
    std::mt19937 random(12);
    auto tool = NewTool();
    auto base = As<ILuxTool>(tool.get());
    ASSERT_EQ(base->put_ToolName(Bstr("Edge").get()), S_OK);
    ASSERT_EQ(base->put_ControlProgID(Bstr("Tessaly.Edit.1").get()), S_OK);
    ASSERT_EQ(base->put_LastRunRecordDiagEnableBase(1), S_OK);
    ASSERT_EQ(base->Run(), S_OK);  // fails: no image
    ComPtr<IDispatch> copyDispatch;
    ASSERT_EQ(As<ILuxObject>(tool.get())->Clone(copyDispatch.Out()), S_OK);
    auto copy = As<ILuxTool>(copyDispatch.get());
    Bstr name, progId;
    LONG diag = 0;
    ASSERT_EQ(copy->get_ToolName(name.Out()), S_OK);
    ASSERT_EQ(copy->get_ControlProgID(progId.Out()), S_OK);
    ASSERT_EQ(copy->get_LastRunRecordDiagEnableBase(&diag), S_OK);
    EXPECT_EQ(name.str(), "Edge");
    EXPECT_EQ(progId.str(), "Tessaly.Edit.1");
    EXPECT_EQ(diag, 1);
    auto original = StatusOf(tool.get()), copied = StatusOf(copy.get());
    EXPECT_NE(original.get(), copied.get());
    const StatusValues a = Read(original.get()), b = Read(copied.get());
    EXPECT_EQ(b.code, a.code);
    EXPECT_EQ(b.text, a.text);
    EXPECT_EQ(b.source, a.source);
    EXPECT_EQ(b.timeRaw, a.timeRaw);
    EXPECT_EQ(b.time, a.time);
}

}  // namespace
}  // namespace tessaly::test
