import type { Field, UriRow } from "../../app/protocol";
import { RpcError } from "../../app/rpc";
import { meaningOf } from "../../app/session";
import { isObject, type Json, type JsonObject } from "../../lib/json";
import { CallList } from "../../ui/call-list";
import { JsonBlock } from "../../ui/json-view";
import { ofUri } from "./form";
import type { Outcome } from "./outcomes";
import { label } from "./words";

interface ResponseProps {
  outcome: Outcome | undefined;
  fields: Field[];
  row: UriRow;
}

export function ResponseView({ outcome, fields, row }: ResponseProps) {
  return (
    <section class="card response" aria-label={label("IDS_RESPONSE")} aria-live="polite">
      <h2>{label("IDS_RESPONSE")}</h2>
      {outcome ? (
        <Answer key={outcome.number} outcome={outcome} fields={fields.map((field) => ofUri(field, row))} />
      ) : (
        <p class="empty">Nothing has been sent yet.</p>
      )}
    </section>
  );
}

function Answer({ outcome, fields }: { outcome: Outcome; fields: Field[] }) {
  const { answer, request, millis } = outcome;
  const time = `${request.method} · ${millis < 10 ? millis.toFixed(1) : millis.toFixed(0)} ms`;
  if ("error" in answer) {
    const { error } = answer;
    return (
      <>
        <p class="verdict">
          <span class="badge bad">{error instanceof RpcError ? `error ${error.code}` : "no answer"}</span>
          <span>{error.message}</span>
          <span class="quiet">{time}</span>
        </p>
        {error instanceof RpcError && error.data !== undefined && <JsonBlock value={error.data} label="Error data" />}
      </>
    );
  }
  const response = "response" in answer ? answer.response : undefined;
  const items = isObject(response) && Array.isArray(response["ITEMS"]) ? response["ITEMS"].filter(isObject) : [];
  return (
    <>
      <p class="verdict">
        <span class={answer.ret === 0 ? "badge good" : "badge bad"}>ret {answer.ret}</span>
        <span>{meaningOf(answer.ret)}</span>
        <span class="quiet">{time}</span>
      </p>
      {items.map((item, index) => (
        <ItemTable key={index} item={item} fields={fields} title={items.length > 1 ? `Item ${index + 1}` : ""} />
      ))}
      {response !== undefined && (
        <details class="raw">
          <summary>Raw JSON</summary>
          <JsonBlock value={response} label="Raw response" />
        </details>
      )}
      <h3>
        Platform calls <span class="count">{answer.calls?.length ?? 0}</span>
      </h3>
      {answer.calls && answer.calls.length > 0 ? (
        <CallList lines={answer.calls} label="Platform calls of this request" />
      ) : (
        <p class="hint">This request made no call to the platform.</p>
      )}
    </>
  );
}

interface TableRow {
  path: string;
  depth: number;
  key: string;
  value: Json | undefined;
  field: Field | undefined;
}

function rowsOf(item: JsonObject, fields: Field[], prefix = "", depth = 0): TableRow[] {
  return Object.entries(item).flatMap(([key, value]) => {
    const field = fields.find((each) => each.key === key);
    const path = prefix + key;
    if (!isObject(value)) return [{ path, depth, key, value, field }];
    return [
      { path, depth, key, value: undefined, field },
      ...rowsOf(value, field?.fields ?? [], `${path}.`, depth + 1),
    ];
  });
}

/** The meaning of a value, if the description names it. */
const nameOf = (field: Field | undefined, value: Json | undefined): string | undefined =>
  field?.values?.find((row) => row.value === value)?.help;

function ItemTable({ item, fields, title }: { item: JsonObject; fields: Field[]; title: string }) {
  const rows = rowsOf(item, fields);
  if (rows.length === 0) return <p class="hint">The item is empty.</p>;
  return (
    <table class="item">
      {title && <caption>{title}</caption>}
      <tbody>
        {rows.map(({ path, depth, key, value, field }) => (
          <tr key={path} data-depth={Math.min(depth, 3)}>
            <th scope="row">{key}</th>
            <td>
              {value !== undefined && (
                <span class={typeof value === "number" ? "value number" : "value"}>
                  {typeof value === "string" ? value : JSON.stringify(value)}
                  {field?.unit && <span class="unit"> {field.unit}</span>}
                </span>
              )}
              {nameOf(field, value) && <span class="unit"> {nameOf(field, value)}</span>}
              {field?.help && <span class="about">{field.help}</span>}
            </td>
          </tr>
        ))}
      </tbody>
    </table>
  );
}
