import { useSignal } from "@preact/signals";
import { dayText, secondsOf, setNow, timeText } from "../../app/set-clock";
import { sizeText } from "../../lib/measures";
import { ClearIcon, EditIcon, LockIcon, PlayIcon, StopIcon } from "../../ui/icons";
import { LineForm } from "../../ui/line-form";
import { Problem } from "../../ui/problem";
import { ask } from "../../ui/question";
import { change, durationText, endOf, type Recording } from "./recordings";
import { label } from "./words";

const states = {
  none: { text: "IDS_EMPTY", tone: "" },
  recording: { text: "IDS_RECORDS_NOW", tone: "bad" },
  complete: { text: "IDS_COMPLETE", tone: "good" },
  partial: { text: "IDS_PARTIAL", tone: "" },
  failed: { text: "IDS_FAILED", tone: "bad" },
} as const;

export function RecordingRow({ recording }: { recording: Recording }) {
  const problem = useSignal("");
  const renaming = useSignal(false);
  const { id, title, channel, status, bytes, reason, lost_bytes: lost, kept = false } = recording;
  const start = secondsOf(recording.start);
  const running = status === "recording";
  const send = (...words: string[]) => change(problem, ...words);

  async function remove() {
    const question = { text: label("IDS_DELETE_QUESTION", title), about: label("IDS_NOT_UNDONE"), action: label("IDS_DELETE") };
    if (await ask(question)) await send("recording", String(id), "delete");
  }

  return (
    <li class="recording" data-id={id} data-status={status}>
      <div class="recording-text">
        {renaming.value ? (
          <LineForm
            class="recording-rename"
            label={label("IDS_TITLE")}
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
        {lost !== undefined && <p class="bad">{label("IDS_LOST_BYTES", sizeText(lost))}</p>}
        <Problem text={problem.value} />
      </div>
      <span class={`badge ${states[status].tone}`}>{label(states[status].text)}</span>
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
          aria-label={`${label("IDS_KEEP")}: ${title}`}
          title={label(kept ? "IDS_KEPT_ABOUT" : "IDS_KEEP_ABOUT")}
          onClick={() => void send("recording", String(id), "keep")}
        >
          <LockIcon closed={kept} />
        </button>
        <button
          type="button"
          class="icon-button"
          aria-expanded={renaming.value}
          aria-label={`${label("IDS_RENAME")}: ${title}`}
          title={label("IDS_RENAME")}
          onClick={() => (renaming.value = !renaming.value)}
        >
          <EditIcon />
        </button>
        <button
          type="button"
          class="icon-button"
          aria-label={`${label("IDS_DELETE")}: ${title}`}
          title={label("IDS_DELETE")}
          onClick={() => void remove()}
        >
          <ClearIcon />
        </button>
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
        aria-label={label("IDS_RECORDED")}
      />
      <span class="quiet">{label("IDS_UNTIL", timeText(times.to))}</span>
    </div>
  );
}
