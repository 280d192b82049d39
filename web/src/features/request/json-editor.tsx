import { isObject, type JsonObject } from "../../lib/json";
import { parseJson, type JsonFault } from "../../lib/json-text";

/** Reads the parameter of a request from a text. Without `required`, an empty text is no parameter. */
export function readParameter(
  text: string,
  required: boolean,
): { parameter: JsonObject | undefined } | { fault: JsonFault } {
  if (!required && text.trim() === "") return { parameter: undefined };
  const parsed = parseJson(text);
  if ("fault" in parsed) return parsed;
  if (isObject(parsed.value)) return { parameter: parsed.value };
  return { fault: { line: 1, column: 1, text: "The parameter is an object: {...}" } };
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
      aria-label="Parameter as JSON"
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
          Line {fault.line}, column {fault.column}: {fault.text}
        </span>
      ) : (
        <span class="quiet">{hint}</span>
      )}
    </p>
  </div>
);
