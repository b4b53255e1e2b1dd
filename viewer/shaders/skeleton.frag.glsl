#version 330 core
in vec4 b_color;
in vec3 b_position;
in vec3 b_normal;
out vec4 out_Color;
void main() {
	vec3 lightPosition = vec3(1, 3, 2);
	vec3 lightColor = vec3(0.7, 0.7, 0.95);
	float ambientStrength = 0.75;
	vec3 ambient = ambientStrength * lightColor;
	vec3 lightDir = normalize(lightPosition - b_position);
	float diffuse = (1 - 0) * max(dot(b_normal, lightDir), 0.0);
   out_Color = vec4(b_color.rgb * (diffuse + ambient), 1);
}