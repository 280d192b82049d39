import { AccessNotice } from "../../app/access-notice";
import { controllable, usePolling } from "../../app/commands";
import { access } from "../../app/session";
import { DownloadIcon, RecordIcon, StopIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
import { capture, captureProblem, download, readCapture, status, type Status } from "./capture";
import { FaultsSection } from "./faults-section";
import { label } from "./words";
import "./capture.css";

const pauseMs = () => (status.peek()?.recording ? 500 : 2000);

export function CapturePanel() {
  const readProblem = usePolling(readCapture, pauseMs);
  return (
    <main class="panel sheet" aria-label={label("IDS_CAPTURE")}>
      <h1>{label("IDS_CAPTURE")}</h1>
      <AccessNotice when="look" />
      {access.value === "control" && (
        <>
          <RecordSection problem={captureProblem.value || readProblem.value} />
          {status.value?.replay && <ReplaySection replay={status.value.replay} />}
          <FaultsSection />
        </>
      )}
    </main>
  );
}

function RecordSection({ problem }: { problem: string }) {
  const state = status.value;
  const recording = state?.recording ?? false;
  return (
    <section class="framed capture-section" aria-label={label("IDS_CAPTURE_RUNS")} data-recording={recording}>
      <p class="hint">{label("IDS_CAPTURE_HINT")}</p>
      <div class="capture-bar">
        <button
          type="button"
          class="button primary"
          disabled={!controllable.value || state === null}
          onClick={() => void capture(recording ? "stop" : "start")}
        >
          {recording ? <StopIcon /> : <RecordIcon />}
          {label(recording ? "IDS_CAPTURE_STOP" : "IDS_CAPTURE_START")}
        </button>
        {state?.kept && (
          <>
            <button type="button" class="button" onClick={() => void download("/record.jsonl", "record.jsonl")}>
              <DownloadIcon />
              {label("IDS_CAPTURE_DOWNLOAD")}
            </button>
            <button type="button" class="button" onClick={() => void download("/record.case.json", "record.case.json")}>
              <DownloadIcon />
              {label("IDS_CAPTURE_CASE")}
            </button>
          </>
        )}
      </div>
      <Problem text={problem || (state?.reason ?? "")} />
      {state?.kept && <Numbers state={state} />}
    </section>
  );
}

const Numbers = ({ state }: { state: Status }) => (
  <dl class="capture-facts">
    <Fact name={label("IDS_DURATION")} value={`${(state.seconds ?? 0).toFixed(1)} s`} />
    <Fact name={label("IDS_REQUESTS")} value={state.requests} />
    <Fact name={label("IDS_CALLS")} value={state.calls} />
    <Fact name={label("IDS_CALLBACKS")} value={state.callbacks} />
    <Fact name={label("IDS_NOTIFICATIONS")} value={state.notifications} />
    <Fact name={label("IDS_SIZE")} value={`${Math.ceil((state.bytes ?? 0) / 1024)} KiB`} />
  </dl>
);

const Fact = ({ name, value }: { name: string; value: string | number | undefined }) => (
  <div>
    <dt>{name}</dt>
    <dd>{value}</dd>
  </div>
);

const ReplaySection = ({ replay }: { replay: NonNullable<Status["replay"]> }) => (
  <section class="framed capture-section" aria-label={label("IDS_CAPTURE_REPLAYS")}>
    <h2>{label("IDS_CAPTURE_REPLAYS")}</h2>
    <p class="capture-file">
      <code>{replay.file}</code> {replay.step} / {replay.steps}
    </p>
    {replay.different > 0 && (
      <>
        <h3>
          {label("IDS_CAPTURE_DIFFERENCES")}: {replay.different}
        </h3>
        <ul class="capture-differences">
          {replay.differences.map((text, index) => (
            <li key={index}>{text}</li>
          ))}
        </ul>
      </>
    )}
  </section>
);
