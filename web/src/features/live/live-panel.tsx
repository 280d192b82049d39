import { signal, useSignal } from "@preact/signals";
import type { ComponentChildren } from "preact";
import { calls, list, notifications, setTracing, setWatched, tracing, watched, type LogValue } from "../../app/session";
import { compactJson, isObject, type Json } from "../../lib/json";
import { clock, type Entry, type Log } from "../../lib/log";
import { CallLine } from "../../app/call-list";
import { ClearIcon, PauseIcon, PlayIcon } from "../../ui/icons";
import { RowList } from "../../ui/row-list";
import { label } from "./words";
import "./live.css";

// All URIs of notifications begin with this.
const notifyPrefix = "/tv/ws/notify/";
const nameOf = (uri: string): string => (uri.startsWith(notifyPrefix) ? uri.slice(notifyPrefix.length) : uri);

type Feed = "notifications" | "calls";

export function LivePanel() {
  const feed = useSignal<Feed>("notifications");
  const tab = (id: Feed, text: string, log: Log<LogValue> | typeof calls) => (
    <button type="button" aria-pressed={feed.value === id} onClick={() => (feed.value = id)}>
      {text} <span class="count">{log.total.value}</span>
    </button>
  );
  return (
    <section class="panel live" aria-label={label("IDS_LIVE")}>
      <div class="segments" role="group" aria-label={label("IDS_LIVE_LOG")}>
        {tab("notifications", label("IDS_NOTIFICATIONS"), notifications)}
        {tab("calls", label("IDS_CALLS"), calls)}
      </div>
      {feed.value === "notifications" ? <Notifications /> : <PlatformCalls />}
    </section>
  );
}

function Notifications() {
  const sources = list.value?.uris.filter((row) => row.uri.startsWith(notifyPrefix)) ?? [];
  return (
    <>
      <details class="sources">
        <summary>
          {label("IDS_SUBSCRIPTIONS")}{" "}
          <span class="count">
            {watched.value.size} / {sources.length}
          </span>
        </summary>
        <ul>
          {sources.map((row) => (
            <li key={row.id} data-served={row.notify}>
              <label class="check">
                <input
                  type="checkbox"
                  checked={watched.value.has(row.uri)}
                  onChange={(event) => setWatched(row.uri, event.currentTarget.checked)}
                />
                <span class="source-name">{nameOf(row.uri)}</span>
                {!row.notify && <span class="quiet">{label("IDS_NOT_SERVED").toLowerCase()}</span>}
              </label>
            </li>
          ))}
        </ul>
      </details>
      <LogView
        log={notifications}
        name={label("IDS_NOTIFICATIONS")}
        empty={
          watched.value.size > 0
            ? label("IDS_WAITING_NOTIFICATION")
            : label("IDS_NO_SUBSCRIPTION")
        }
        title={(value) => ("uri" in value ? nameOf(value.uri) : "")}
        estimate={68}
        render={(entry, tabIndex) => <NotificationLine entry={entry} tabIndex={tabIndex} />}
      />
    </>
  );
}

/** Notifications whose raw text is shown. A row that leaves the visible part of the log is not rendered. */
const opened = signal<ReadonlySet<Entry<LogValue>>>(new Set());

function setOpened(entry: Entry<LogValue>, on: boolean) {
  if (on === opened.peek().has(entry)) return;
  const next = new Set(opened.peek());
  if (on) next.add(entry);
  else next.delete(entry);
  opened.value = next;
}

/** Of a member's text, so much is shown in a line. The raw text has all of it. */
const lineCharacters = 300;

function lineText(value: Json): string {
  const text = compactJson(value);
  return text.length > lineCharacters ? `${text.slice(0, lineCharacters)}…` : text;
}

const WarningLine = ({ text, tabIndex }: { text: string; tabIndex: 0 | -1 }) => (
  <p class="warning" tabIndex={tabIndex}>
    {text}
  </p>
);

function NotificationLine({ entry, tabIndex }: { entry: Entry<LogValue>; tabIndex: 0 | -1 }) {
  const { value } = entry;
  if ("warning" in value) return <WarningLine text={value.warning} tabIndex={tabIndex} />;
  const { notification } = value;
  const body = isObject(notification) ? (notification["ITEMS"] ?? notification["PARAMETER"] ?? notification) : notification;
  const items = Array.isArray(body) ? body : [body];
  const open = opened.value.has(entry);
  return (
    <details
      class="notification"
      open={open}
      onToggle={(event) => setOpened(entry, event.currentTarget.open)}
    >
      <summary tabIndex={tabIndex}>
        {items.map((item, index) => (
          <span class="payload" key={index}>
            {isObject(item)
              ? Object.entries(item).map(([key, member]) => (
                  <span class="arg" key={key}>
                    <span class="j-key">{key}</span> <span class="j-number">{lineText(member)}</span>
                  </span>
                ))
              : lineText(item)}
          </span>
        ))}
      </summary>
      {open && <pre class="code">{compactJson(notification)}</pre>}
    </details>
  );
}

const PlatformCalls = () => (
  <>
    <div class="switch-line">
      <label class="switch">
        <input
          type="checkbox"
          role="switch"
          checked={tracing.value}
          onChange={(event) => setTracing(event.currentTarget.checked)}
        />
        <span>{label("IDS_TRACE_CALLS")}</span>
      </label>
    </div>
    <LogView
      log={calls}
      name={label("IDS_CALLS")}
      empty={label(tracing.value ? "IDS_WAITING_CALL" : "IDS_TRACE_OFF")}
      title={() => ""}
      estimate={76}
      render={({ value }, tabIndex) =>
        "warning" in value ? (
          <WarningLine text={value.warning} tabIndex={tabIndex} />
        ) : (
          <div tabIndex={tabIndex}>
            <CallLine line={value} />
          </div>
        )
      }
    />
  </>
);

interface LogViewProps<T> {
  log: Log<T>;
  name: string;
  empty: string;
  /** The text next to the time. */
  title: (value: T) => string;
  /** As for a RowList. */
  estimate: number;
  render: (entry: Entry<T>, tabIndex: 0 | -1) => ComponentChildren;
}

function LogView<T>({ log, name, empty, title, estimate, render }: LogViewProps<T>) {
  const paused = log.paused.value;
  return (
    <>
      <div class="log-bar">
        <span role="status">
          {paused ? label("IDS_PAUSED_WAITING", log.held.value) : `${log.total.value} ${label("IDS_RECEIVED")}`}
        </span>
        <button type="button" class="button small" aria-pressed={paused} onClick={() => log.setPaused(!paused)}>
          {paused ? <PlayIcon /> : <PauseIcon />}
          {label("IDS_PAUSE")}
        </button>
        <button type="button" class="button small" onClick={() => log.clear()}>
          <ClearIcon />
          {label("IDS_CLEAR")}
        </button>
      </div>
      <RowList
        rows={log.entries.value}
        keyOf={(entry) => entry.key}
        estimate={estimate}
        label={name}
        empty={empty}
        render={(entry, tabIndex) => (
          <>
            <span class="when">
              <time>{clock(entry.at)}</time>
              <span class="source-name">{title(entry.value)}</span>
              {entry.number !== null && <span>#{entry.number}</span>}
            </span>
            {render(entry, tabIndex)}
          </>
        )}
      />
    </>
  );
}
