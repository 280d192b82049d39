import { Fragment } from "preact";
import { compactJson, type JsonObject } from "../lib/json";
import type { TapLine } from "../lib/tap-line";
import { label } from "./words";
import "./call-list.css";

const Members = ({ members }: { members: JsonObject | undefined }) => (
  <>
    {Object.entries(members ?? {}).map(([key, value], index) => (
      <Fragment key={key}>
        {index > 0 && ", "}
        <span class="arg">
          <span class="j-key">{key}</span>: <span class="j-number">{compactJson(value)}</span>
        </span>
      </Fragment>
    ))}
  </>
);

/** One call or callback, written as a function call with its result. */
export function CallLine({ line }: { line: TapLine }) {
  const isEvent = line.event !== undefined;
  const hasOut = line.out && Object.keys(line.out).length > 0;
  return (
    <div class="call" data-event={isEvent}>
      <div class="call-text">
        <b>{line.call ?? line.event}</b>(<Members members={line.in} />)
        {line.ret !== undefined && (
          <>
            {" → "}
            <span class="j-number">{compactJson(line.ret)}</span>
          </>
        )}
      </div>
      {hasOut && (
        <div class="call-out">
          {label("IDS_OUT")} <Members members={line.out} />
        </div>
      )}
      <div class="call-meta">
        {isEvent && <span class="badge event">{label("IDS_CALLBACK")}</span>}
        {label("IDS_CALL_AT", (line.t / 1e6).toFixed(6), line.thread)}
        {line.duration !== undefined && ` · ${label("IDS_TOOK", (line.duration / 1000).toFixed(1))}`}
      </div>
    </div>
  );
}

export const CallList = ({ lines, label }: { lines: TapLine[]; label: string }) => (
  <ol class="calls" aria-label={label}>
    {lines.map((line, index) => (
      <li key={index}>
        <CallLine line={line} />
      </li>
    ))}
  </ol>
);
