import { useSignal } from "@preact/signals";
import { useEffect } from "preact/hooks";
import { attempt } from "../../app/commands";
import { textOf } from "../../app/session";
import { dayText, timeText } from "../../app/set-clock";
import { BellIcon, ListIcon, RecordIcon } from "../../ui/icons";
import { Problem } from "../../ui/problem";
import { tune } from "../channels/channels";
import { present, readDetails, type EventDetails } from "./guide";
import { chosen as chosenEvent, type Chosen } from "./shown";
import { label } from "./words";

const done = {
  record: "IDS_WILL_RECORD_EVENT",
  reminder: "IDS_WILL_REMIND",
  series: "IDS_WILL_RECORD_PARTS",
} as const;

/** The chosen event, and what can be done with it. Another event needs another key. */
export function EventBox({ chosen }: { chosen: Chosen }) {
  const { channel, event } = chosen;
  const details = useSignal<EventDetails | null>(null);
  const problem = useSignal("");
  const said = useSignal("");
  const end = event.start + event.duration;
  const now = present.value;

  useEffect(() => {
    let shown = true;
    readDetails(channel, event.id).then(
      (read) => {
        if (shown) details.value = read;
      },
      (reason: unknown) => {
        if (shown) problem.value = textOf(reason);
      },
    );
    return () => {
      shown = false;
    };
  }, []);

  async function plan(what: keyof typeof done, ...words: string[]) {
    said.value = "";
    if (await attempt(problem, ...words)) said.value = label(done[what]);
  }

  const id = String(event.id);
  // An event that names no series is of the series that has its title.
  const isPart = details.value !== null && details.value.series !== "" && details.value.series !== event.title;
  const { summary = "", details: text = "", age = 0, blocked = false } = details.value ?? {};
  return (
    <aside
      class="event-box"
      aria-label={label("IDS_DETAILS")}
      onKeyDown={(pressed) => {
        if (pressed.key === "Escape") chosenEvent.value = null;
      }}
    >
      <div class="event-title">
        <h2 dir="auto">{event.title}</h2>
        <button type="button" class="link-button" onClick={() => (chosenEvent.value = null)}>
          {label("IDS_CLOSE")}
        </button>
      </div>
      <p class="quiet">
        <span dir="auto">{`${channel.number} ${channel.name}`}</span>
        <br />
        {`${dayText(event.start)}, ${timeText(event.start)} – ${timeText(end)}`}
      </p>
      <div class="event-actions">
        {event.start <= now && now < end && (
          <button type="button" class="button small" onClick={() => void tune(channel)}>
            {label("IDS_WATCH")}
          </button>
        )}
        <button type="button" class="button small" onClick={() => void plan("record", "record", "event", channel.word, id)}>
          <RecordIcon />
          {label("IDS_RECORD")}
        </button>
        <button
          type="button"
          class="button small"
          disabled={event.start <= now}
          onClick={() => void plan("reminder", "reminder", channel.word, id)}
        >
          <BellIcon />
          {label("IDS_REMIND")}
        </button>
        <button
          type="button"
          class="button small"
          onClick={() => void plan("series", "record", "event", channel.word, id, "series")}
        >
          <ListIcon />
          {label("IDS_SERIES")}
        </button>
      </div>
      <p role="status" class="event-said">
        {said.value}
      </p>
      <Problem text={problem.value} />
      {(age > 0 || blocked || isPart) && (
        <p>
          {age > 0 && <span class="badge">{label("IDS_FROM_AGE", age)}</span>}{" "}
          {blocked && <span class="badge bad">{label("IDS_BLOCKED")}</span>}{" "}
          {isPart && <span class="badge">{label("IDS_SERIES")}</span>}
        </p>
      )}
      {summary && <p dir="auto">{summary}</p>}
      {text && (
        <p class="event-text" dir="auto">
          {text}
        </p>
      )}
    </aside>
  );
}
