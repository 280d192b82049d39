import { useSignal } from "@preact/signals";
import { dayText, secondsOf, setNow, timeText } from "../../app/set-clock";
import { sizeText } from "../../lib/measures";
import { ClearIcon, EditIcon, LockIcon, PlayIcon, StopIcon } from "../../ui/icons";
import { LineForm } from "../../ui/line-form";
import { Problem } from "../../ui/problem";
import { change, durationText, endOf, type Recording } from "./recordings";
import { label } from "./words";

const states = {
  none: { text: "empty", tone: "" },
  recording: { text: "records", tone: "bad" },
  complete: { text: "complete", tone: "good" },
  partial: { text: "partial", tone: "" },
  failed: { text: "failed", tone: "bad" },
} as const;

export function RecordingRow({ recording }: { recording: Recording }) {
  const problem = useSignal("");
  const renaming = useSignal(false);
  const sure = useSignal(false);
  const { id, title, channel, status, bytes, reason, lost_bytes: lost, kept = false } = recording;
  const start = secondsOf(recording.start);
  const running = status === "recording";
  const send = (...words: string[]) => change(problem, ...words);
  return (
    <li class="recording" data-id={id} data-status={status}>
      <div class="recording-text">
        {renaming.value ? (
          <LineForm
            class="recording-rename"
            label="Title"
            text={title}
            action={label("IDS_SAVE")}
            send={(text) => send("recording", String(id), "name", text)}
            close={() => (renaming.value = false)}
          />
        ) : (
          <p class="recording-title" dir="auto">
            {title}
          </p>
        )}
        <p class="quiet">
          <span dir="auto">{channel}</span> · {dayText(start)}, {timeText(start)} · {durationText(recording.seconds)} ·{" "}
          {sizeText(bytes)}
        </p>
        {running && <RunningBar recording={recording} />}
        {reason && <p class="bad">{reason}</p>}
        {lost !== undefined && <p class="bad">{`${sizeText(lost)} are missing: the disk was too slow.`}</p>}
        <Problem text={problem.value} />
      </div>
      <span class={`badge ${states[status].tone}`}>{states[status].text}</span>
      <div class="recording-actions">
        {status !== "failed" && (
          <button
            type="button"
            class="icon-button"
            aria-label={`${label("IDS_PLAY")}: ${title}`}
            title={label("IDS_PLAY")}
            onClick={() => void send("recording", String(id), "play")}
          >
            <PlayIcon />
          </button>
        )}
        {running && (
          <button type="button" class="button small" onClick={() => void send("record", "stop", String(id))}>
            <StopIcon />
            {label("IDS_STOP")}
          </button>
        )}
        <button
          type="button"
          class="icon-button"
          aria-pressed={kept}
          aria-label={`Keep: ${title}`}
          title={kept ? "Protected from deletion" : "Keep: protect from deletion"}
          onClick={() => void send("recording", String(id), "keep")}
        >
          <LockIcon closed={kept} />
        </button>
        <button
          type="button"
          class="icon-button"
          aria-expanded={renaming.value}
          aria-label={`Rename: ${title}`}
          title="Rename"
          onClick={() => (renaming.value = !renaming.value)}
        >
          <EditIcon />
        </button>
        {sure.value ? (
          <>
            <button type="button" class="button small" onClick={() => void send("recording", String(id), "delete")}>
              <ClearIcon />
              {label("IDS_DELETE")}
            </button>
            <button type="button" class="link-button" onClick={() => (sure.value = false)}>
              {label("IDS_CANCEL")}
            </button>
          </>
        ) : (
          <button
            type="button"
            class="icon-button"
            aria-label={`${label("IDS_DELETE")}: ${title}`}
            title={label("IDS_DELETE")}
            onClick={() => (sure.value = true)}
          >
            <ClearIcon />
          </button>
        )}
      </div>
    </li>
  );
}

/** How much of its planned time a recording has run. */
function RunningBar({ recording }: { recording: Recording }) {
  const times = endOf(recording);
  if (!times) return null;
  return (
    <div class="recording-bar">
      <progress
        max={Math.max(times.to - times.from, 1)}
        value={Math.max(0, setNow() - times.from)}
        aria-label="Recorded"
      />
      <span class="quiet">{`until ${timeText(times.to)}`}</span>
    </div>
  );
}
