import { isObject, type JsonObject } from "../../lib/json";
import { parseJson, type FaultKind, type JsonFault } from "../../lib/json-text";
import { label } from "./words";

const faultNames: Readonly<Record<FaultKind, Parameters<typeof label>[0]>> = {
  escape: "IDS_FAULT_ESCAPE",
  character: "IDS_FAULT_CHARACTER",
  end: "IDS_FAULT_END",
  member: "IDS_FAULT_MEMBER",
  colon: "IDS_FAULT_COLON",
  comma: "IDS_FAULT_COMMA",
  value: "IDS_FAULT_VALUE",
  after: "IDS_FAULT_AFTER",
  depth: "IDS_FAULT_DEPTH",
  object: "IDS_FAULT_OBJECT",
};

/** Reads the parameter of a request from a text. Without `required`, an empty text is no parameter. */
export function readParameter(
  text: string,
  required: boolean,
): { parameter: JsonObject | undefined } | { fault: JsonFault } {
  if (!required && text.trim() === "") return { parameter: undefined };
  const parsed = parseJson(text);
  if ("fault" in parsed) return parsed;
  if (isObject(parsed.value)) return { parameter: parsed.value };
  return { fault: { line: 1, column: 1, kind: "object" } };
}

interface EditorProps {
  text: string;
  fault: JsonFault | undefined;
  hint: string;
  onInput: (text: string) => void;
}

/** The parameter as JSON, with the place of its first fault. */
export const JsonEditor = ({ text, fault, hint, onInput }: EditorProps) => (
  <div class="field json-editor">
    <textarea
      aria-label={label("IDS_PARAMETER_JSON")}
      aria-describedby="json-editor-about"
      aria-invalid={fault !== undefined}
      rows={Math.max(6, Math.min(16, text.split("\n").length + 1))}
      spellcheck={false}
      autocomplete="off"
      value={text}
      onInput={(event) => onInput(event.currentTarget.value)}
    />
    <p class="about" id="json-editor-about">
      {fault ? (
        <span class="bad">
          {label("IDS_FAULT_AT", fault.line, fault.column, label(faultNames[fault.kind], fault.bracket ?? ""))}
        </span>
      ) : (
        <span class="quiet">{hint}</span>
      )}
    </p>
  </div>
);
